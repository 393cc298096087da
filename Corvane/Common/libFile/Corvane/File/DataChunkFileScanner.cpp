#include "Corvane/File/DataChunkFileScanner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/Descriptor.h"
#include "Corvane/File/FileImage.h"
#include "Corvane/File/Log.h"

namespace Corvane::File {

using Pellin::DataChunk;

namespace {

constexpr std::uint64_t kMaxPosition = INT64_MAX;  // that the system can seek to

// Sizes in bytes. A larger window would leave the processor's cache. A longer record costs less through the descriptor:
// a window would copy it once more.
constexpr std::uint64_t kFirstWindow = std::uint64_t{1} << 16U;
constexpr std::uint64_t kFullWindow = std::uint64_t{1} << 18U;

// After a jump, the window is as long as the longest of the last records. Above this size, it would too often be
// mostly in vain.
constexpr std::uint64_t kLongestJumpWindow = std::uint64_t{1} << 14U;
constexpr unsigned kLastRecords = 64;

// So many calls for single records cost less than the mapping for a window.
constexpr unsigned kRecordsBeforeWindow = 16;

// Bytes that a search has after the one that it tries: twice the largest record, within these bounds.
constexpr std::uint64_t kSearchedAhead = std::uint64_t{1} << 20U;
constexpr std::uint64_t kMostSearchedAhead = std::uint64_t{1} << 31U;

// Opens the file for reading and leaves its access time alone, if the system permits that.
int OpenForReading(const std::string& filename)
{
    const int fd = ::open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NOATIME);
    return fd == -1 && errno == EPERM ? ::open(filename.c_str(), O_RDONLY | O_CLOEXEC) : fd;
}

struct ReadResult {
    std::uint64_t size = 0;  // bytes read
    int error = 0;           // of the call after them; 0 if it met the end of the file, or was not needed
};

// Reads `size` bytes, or fewer at the end of the file or after an error.
ReadResult ReadAt(int fd, unsigned char* bytes, std::uint64_t size, std::uint64_t position)
{
    ReadResult result;
    const std::uint64_t most = position < kMaxPosition ? std::min(size, kMaxPosition - position) : 0;
    while (result.size < most) {
        const ssize_t count =
            ::pread(fd, bytes + result.size, most - result.size, static_cast<off_t>(position + result.size));
        if (count == -1 && errno != EINTR) {
            result.error = errno;
            break;
        }
        if (count == 0) {
            break;
        }
        result.size += count == -1 ? 0 : static_cast<std::uint64_t>(count);
    }
    return result;
}

// A part of the file in memory, followed by the readable zeros of an image's tail. It lies at the end of the image, so
// that the tail follows it directly. After a window that is shorter because the file ends, zeros are written over what
// an earlier window left there.
class Window {
public:
    // Loads up to `size` bytes of the file. Returns false if there can be no tail; the window is then empty for good.
    bool Load(int fd, std::uint64_t size, std::uint64_t position);

    // Whether the window has these bytes.
    bool Holds(std::uint64_t position, std::uint64_t size) const
    {
        return position_ <= position && position - position_ <= size_ && size <= size_ - (position - position_);
    }

    void Empty() { size_ = 0; }
    bool IsThere() const { return image_.has_value(); }
    bool IsPossible() const { return !tailRefused_; }
    bool IsFull() const { return isFull_; }  // else it ends with the file, or before an error
    int Error() const { return error_; }
    std::uint64_t Position() const { return position_; }
    std::uint64_t Size() const { return size_; }
    std::uint64_t End() const { return position_ + size_; }
    const unsigned char* At(std::uint64_t position) const { return bytes_ + (position - position_); }

private:
    bool MakeRoom(std::uint64_t size);

    std::optional<FileImage> image_;
    bool tailRefused_ = false;
    std::uint64_t dirty_ = 0;  // the image's bytes from here on are zero
    const unsigned char* bytes_ = nullptr;
    std::uint64_t position_ = 0;  // of the window's first byte in the file
    std::uint64_t size_ = 0;
    bool isFull_ = false;
    int error_ = 0;
};

// NOLINTBEGIN(bugprone-unchecked-optional-access): MakeRoom and IsThere tell whether there is an image
bool Window::Load(int fd, std::uint64_t size, std::uint64_t position)
{
    size_ = 0;
    if (!MakeRoom(size)) {
        return false;
    }
    const std::uint64_t begin = image_->Size() - size;
    unsigned char* const bytes = image_->Data() + begin;
    const ReadResult read = ReadAt(fd, bytes, size, position);
    const std::uint64_t end = begin + read.size;
    if (end < dirty_) {
        std::memset(image_->Data() + end, 0, dirty_ - end);
    }
    dirty_ = end;
    bytes_ = bytes;
    position_ = position;
    size_ = read.size;
    isFull_ = read.size == size;
    error_ = read.error;
    return true;
}

// One image for all windows of a walk. A search needs a larger one, and leaves it to the walk if it is not huge.
bool Window::MakeRoom(std::uint64_t size)
{
    constexpr std::uint64_t kHuge = std::uint64_t{1} << 23U;
    const bool isTooLarge = IsThere() && image_->Size() > kHuge && size <= kFullWindow;
    if (IsThere() && image_->Size() >= size && !isTooLarge) {
        return true;
    }
    image_.reset();
    dirty_ = 0;
    if (tailRefused_ || !image_.emplace().CoverWithTail(std::max(size, kFullWindow))) {
        image_.reset();
        tailRefused_ = true;
        return false;
    }
    return true;
}
// NOLINTEND(bugprone-unchecked-optional-access)

}  // namespace

// Where a walk stands, and what it needs to go on.
//
// position_ is where the present record begins. Without one (recordSize_ is 0) the next record is tried there. Next is
// short while the window has records: it stores where the record is and how long, and counts it.
//
// Hidden, because otherwise the compiler could not inline its members.
class [[gnu::visibility("hidden")]] DataChunkFileScanner::Walk {
public:
    explicit Walk(std::string filename);

    bool Next();
    bool FindNext();
    void GoTo(std::uint64_t position, std::uint64_t records);

    const std::string& Filename() const { return filename_; }
    std::uint64_t Version() const { return header_[0]; }
    std::uint64_t NumberOfChunks() const { return header_[1]; }
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): it throws if there is none
    const DataChunk& Chunk() const { return chunk_.value(); }
    std::uint64_t Position() const { return position_; }
    std::uint64_t NumberRead() const { return numberRead_; }
    End WhyItEnded() const { return end_; }

private:
    void Begin(std::uint64_t position, std::uint64_t records);
    bool Stop(End end);

    bool ReadFromWindow();
    bool NextFromFile(std::uint64_t lastSize);
    bool ShowInWindow(std::uint64_t size);
    bool ReadThroughDescriptor();
    bool IsAllowedWithoutLength();

    bool CanSearchWindow(std::uint64_t ahead) const;
    bool SearchWindow(std::uint64_t ahead);
    void SkipHole(std::uint64_t ahead);
    std::uint64_t SizeInWindow() const;
    bool SearchThroughDescriptor();
    bool Found(std::uint64_t recordSize);

    void NoteSize(std::uint64_t recordSize);
    std::uint64_t NextWindowSize(std::uint64_t lastSize) const;
    bool HasByteAt(std::uint64_t position) const;
    [[noreturn]] void FailToRead(std::uint64_t position, int error) const;
    [[noreturn]] void Fail(const std::string& step, int error) const;

    std::uint64_t position_ = kHeaderSize;
    std::uint64_t recordSize_ = 0;
    std::uint64_t numberRead_ = 0;
    std::uint64_t limit_ = 0;       // of records: mostRecords_, or fewer because some have no length
    std::uint64_t visibleEnd_ = 0;  // Next looks at the window up to this position
    Window window_;
    std::optional<DataChunk> chunk_;

    std::uint64_t start_ = kHeaderSize;  // where the walk began
    std::uint64_t mostRecords_ = 0;
    std::uint64_t windowSize_ = kFirstWindow;  // to load next
    bool isLongJump_ = false;                  // the next record is to be read through the descriptor
    unsigned singleRecords_ = 0;               // read through the descriptor
    std::uint64_t largestSize_ = 0;            // of all records
    unsigned notedRecords_ = 0;                // in this round of kLastRecords
    std::uint64_t largestOfRound_ = 0;
    std::uint64_t largestOfRoundBefore_ = 0;
    End end_ = End::AllRead;

    std::string filename_;
    Descriptor file_;
    std::array<std::uint64_t, 2> header_ = {};
};

DataChunkFileScanner::Walk::Walk(std::string filename)
    : filename_(std::move(filename)), file_(OpenForReading(filename_))
{
    static_assert(sizeof header_ == kHeaderSize && kVersionPosition == 0);
    if (file_.Get() == -1) {
        Fail("open", errno);
    }
    const ReadResult read = ReadAt(file_.Get(), reinterpret_cast<unsigned char*>(header_.data()), sizeof header_, 0);
    if (read.error != 0) {
        FailToRead(read.size, read.error);
    }
    Begin(kHeaderSize, NumberOfChunks());
}

void DataChunkFileScanner::Walk::FailToRead(std::uint64_t position, int error) const
{
    Fail(Join("read at byte ", position), error);
}

void DataChunkFileScanner::Walk::Fail(const std::string& step, int error) const
{
    errno = error;
    const std::string reason = SystemReason();
    throw std::runtime_error(Join("DataChunkFileScanner: file ", filename_, ": ", step, ": ", reason));
}

bool DataChunkFileScanner::Walk::HasByteAt(std::uint64_t position) const
{
    unsigned char byte = 0;
    const ReadResult read = ReadAt(file_.Get(), &byte, sizeof byte, position);
    if (read.error != 0) {
        FailToRead(position, read.error);
    }
    return read.size != 0;
}

void DataChunkFileScanner::Walk::Begin(std::uint64_t position, std::uint64_t records)
{
    chunk_.reset();
    position_ = position;
    recordSize_ = 0;
    numberRead_ = 0;
    limit_ = records;
    visibleEnd_ = 0;
    start_ = position;
    mostRecords_ = records;
}

// Ends the walk for now. Nothing that is in the window is taken for the file's next bytes.
bool DataChunkFileScanner::Walk::Stop(End end)
{
    chunk_.reset();
    visibleEnd_ = 0;
    end_ = end;
    return false;
}

void DataChunkFileScanner::Walk::GoTo(std::uint64_t position, std::uint64_t records)
{
    NoteSize(recordSize_);
    const std::uint64_t expected = std::max(largestOfRound_, largestOfRoundBefore_);
    isLongJump_ = expected > kLongestJumpWindow;
    windowSize_ = isLongJump_ || expected == 0 ? kFirstWindow : expected;
    window_.Empty();
    Begin(position, records);
}

void DataChunkFileScanner::Walk::NoteSize(std::uint64_t recordSize)
{
    if (recordSize == 0) {
        return;
    }
    if (notedRecords_++ == kLastRecords) {
        notedRecords_ = 1;
        largestOfRoundBefore_ = std::exchange(largestOfRound_, 0);
    }
    largestOfRound_ = std::max(largestOfRound_, recordSize);
    largestSize_ = std::max(largestSize_, recordSize);
}

bool DataChunkFileScanner::Walk::Next()
{
    const std::uint64_t lastSize = std::exchange(recordSize_, 0);
    position_ += lastSize;
    // In a full window, the rest is probably part of a record.
    const bool mayBeWhole = position_ < visibleEnd_ && (visibleEnd_ - position_ >= lastSize || !window_.IsFull());
    if (numberRead_ < limit_ && mayBeWhole && ReadFromWindow()) {
        ++numberRead_;
        return true;
    }
    return NextFromFile(lastSize);
}

bool DataChunkFileScanner::Walk::ReadFromWindow()
{
    chunk_.emplace();
    if (chunk_->ReadFrom(window_.At(position_)) == 0) {
        return false;
    }
    const std::uint64_t size = chunk_->GetSizeOnFile();
    if (size > visibleEnd_ - position_ || (size == 0 && !IsAllowedWithoutLength())) {
        return false;
    }
    recordSize_ = size;
    return true;
}

// Reads the file for the next record: into the window, and if that does not suffice, through the descriptor.
bool DataChunkFileScanner::Walk::NextFromFile(std::uint64_t lastSize)
{
    if (numberRead_ >= limit_) {
        return Stop(limit_ == mostRecords_ ? End::AllRead : End::BadRecord);
    }
    NoteSize(lastSize);
    bool isGood = false;
    if (ShowInWindow(NextWindowSize(lastSize))) {
        isGood = position_ < visibleEnd_ && ReadFromWindow();
        // A window that has just been loaded up to the end of the file leaves no doubt.
        if (!isGood && !window_.IsFull() && window_.Position() == position_) {
            if (window_.Error() != 0) {
                FailToRead(window_.End(), window_.Error());
            }
            return Stop(window_.Size() == 0 ? End::EndOfFile : End::BadRecord);
        }
    }
    if (!isGood && !ReadThroughDescriptor()) {
        return Stop(HasByteAt(position_) ? End::BadRecord : End::EndOfFile);
    }
    ++numberRead_;
    return true;
}

// A whole number of records like the last one, so that nothing is read twice if all are alike.
std::uint64_t DataChunkFileScanner::Walk::NextWindowSize(std::uint64_t lastSize) const
{
    return lastSize == 0 ? windowSize_ : std::max(lastSize, windowSize_ / lastSize * lastSize);
}

// Lets Next look at the window from its position on, and loads it if needed. Returns false if the next record is to be
// read through the descriptor.
bool DataChunkFileScanner::Walk::ShowInWindow(std::uint64_t size)
{
    const bool isWorthIt = size <= kFullWindow && (window_.IsThere() || singleRecords_ >= kRecordsBeforeWindow);
    if (std::exchange(isLongJump_, false) || !isWorthIt || !window_.IsPossible()) {
        return false;
    }
    if (visibleEnd_ != 0 && window_.Holds(position_, size)) {
        visibleEnd_ = position_ + size;
        return true;
    }
    visibleEnd_ = 0;
    windowSize_ = std::min(2 * std::min(windowSize_, kFullWindow), kFullWindow);
    if (!window_.Load(file_.Get(), size, position_)) {
        return false;
    }
    visibleEnd_ = window_.End();
    return true;
}

bool DataChunkFileScanner::Walk::ReadThroughDescriptor()
{
    if (position_ >= kMaxPosition) {
        return false;
    }
    if (::lseek64(file_.Get(), static_cast<off64_t>(position_), SEEK_SET) == -1) {
        const int error = errno;
        if (HasByteAt(position_)) {
            Fail(Join("seek to byte ", position_), error);
        }
        return false;
    }
    chunk_.emplace();
    if (chunk_->ReadFrom(file_.Get()) == 0) {
        return false;
    }
    const std::uint64_t size = chunk_->GetSizeOnFile();
    const std::uint64_t last = std::max<std::uint64_t>(size, 1) - 1;
    if (last >= kMaxPosition - position_ || !HasByteAt(position_ + last) || (size == 0 && !IsAllowedWithoutLength())) {
        return false;
    }
    ++singleRecords_;
    recordSize_ = size;
    return true;
}

// As in a reopening, there are no more records than bytes. This ends a walk over records without length.
bool DataChunkFileScanner::Walk::IsAllowedWithoutLength()
{
    struct stat status = {};
    if (::fstat(file_.Get(), &status) == -1) {
        Fail("fstat", errno);
    }
    const std::uint64_t fileSize = std::max(start_, static_cast<std::uint64_t>(status.st_size));
    limit_ = std::min(mostRecords_, fileSize - start_);
    return numberRead_ < limit_;
}

bool DataChunkFileScanner::Walk::FindNext()
{
    NoteSize(recordSize_);
    Begin(position_ + recordSize_, UINT64_MAX);
    const std::uint64_t ahead = std::clamp(2 * largestSize_, kSearchedAhead, kMostSearchedAhead);
    for (;;) {
        // A quarter more: then moving the window costs little beside trying its bytes.
        if (!CanSearchWindow(ahead) && !window_.Load(file_.Get(), ahead + ahead / 4, position_)) {
            return SearchThroughDescriptor();
        }
        if (position_ == window_.End()) {
            break;
        }
        if (SearchWindow(ahead)) {
            return true;
        }
        SkipHole(ahead);
    }
    if (window_.Error() != 0) {
        FailToRead(position_, window_.Error());
    }
    return Stop(End::EndOfFile);
}

// Whether the window has enough bytes after the position, or all up to the end of the file.
bool DataChunkFileScanner::Walk::CanSearchWindow(std::uint64_t ahead) const
{
    const bool endsWithFile = !window_.IsFull() && window_.Error() == 0;
    return window_.Holds(position_, ahead) ||
           (endsWithFile && window_.Holds(position_, 1) && !HasByteAt(window_.End()));
}

// Tries every byte that has enough bytes after it, or all up to the end of the file.
bool DataChunkFileScanner::Walk::SearchWindow(std::uint64_t ahead)
{
    const std::uint64_t end = window_.IsFull() ? window_.End() - ahead + 1 : window_.End();
    for (; position_ < end; ++position_) {
        const std::uint64_t size = SizeInWindow();
        if (size != 0) {
            return Found(size);
        }
    }
    return false;
}

// In a hole, all positions look alike as long as their bytes ahead lie in it. The last one was no record, so none of
// them is.
void DataChunkFileScanner::Walk::SkipHole(std::uint64_t ahead)
{
    const auto tried = static_cast<off64_t>(position_ - 1);
    const auto size = static_cast<off64_t>(ahead);
    off64_t end = ::lseek64(file_.Get(), tried, SEEK_DATA);
    if (end == -1 && errno == ENXIO) {  // it reaches to the end of the file
        end = ::lseek64(file_.Get(), 0, SEEK_END);
    }
    if (end - tried > size) {
        position_ = static_cast<std::uint64_t>(end - size) + 1;
    }
}

// The size of the good record at the position; 0 if there is none, or one without length.
std::uint64_t DataChunkFileScanner::Walk::SizeInWindow() const
{
    DataChunk chunk;
    if (chunk.ReadFrom(window_.At(position_)) == 0) {
        return 0;
    }
    const std::uint64_t size = chunk.GetSizeOnFile();
    return size <= window_.End() - position_ ? size : 0;
}

// Without a tail, memory cannot be parsed.
bool DataChunkFileScanner::Walk::SearchThroughDescriptor()
{
    for (; HasByteAt(position_); ++position_) {
        if (ReadThroughDescriptor() && recordSize_ != 0) {
            return Found(recordSize_);
        }
    }
    return Stop(End::EndOfFile);
}

// Begins a walk at the record that was found. Next reads it again, from the window if it is there.
bool DataChunkFileScanner::Walk::Found(std::uint64_t recordSize)
{
    Begin(position_, UINT64_MAX);
    const std::uint64_t visible = std::max(recordSize, kFullWindow);
    visibleEnd_ = window_.Holds(position_, 1) ? std::min(window_.End(), position_ + visible) : 0;
    return true;
}

DataChunkFileScanner::DataChunkFileScanner(std::string filename) : walk_(std::make_unique<Walk>(std::move(filename))) {}

DataChunkFileScanner::~DataChunkFileScanner() = default;

bool DataChunkFileScanner::Next()
{
    return walk_->Next();
}

const DataChunk& DataChunkFileScanner::GetChunk() const
{
    return walk_->Chunk();
}

std::uint64_t DataChunkFileScanner::GetPosition() const
{
    return walk_->Position();
}

std::uint64_t DataChunkFileScanner::GetNumberRead() const
{
    return walk_->NumberRead();
}

DataChunkFileScanner::End DataChunkFileScanner::GetEnd() const
{
    return walk_->WhyItEnded();
}

void DataChunkFileScanner::GoTo(std::uint64_t position, std::uint64_t records)
{
    walk_->GoTo(position, records);
}

bool DataChunkFileScanner::FindNext()
{
    return walk_->FindNext();
}

std::string DataChunkFileScanner::GetFilename() const
{
    return walk_->Filename();
}

std::uint64_t DataChunkFileScanner::GetNumberOfChunks() const
{
    return walk_->NumberOfChunks();
}

std::uint64_t DataChunkFileScanner::GetVersion() const
{
    return walk_->Version();
}

}  // namespace Corvane::File
