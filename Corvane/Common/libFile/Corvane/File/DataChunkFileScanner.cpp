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
#include "Corvane/File/Log.h"

namespace Corvane::File {

using Pellin::DataChunk;

namespace {

constexpr std::uint64_t kMaxPosition = INT64_MAX;

// Opens the file for reading and leaves its access time alone, if the system permits that.
int OpenForReading(const std::string& filename)
{
    const int fd = ::open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NOATIME);
    return fd == -1 && errno == EPERM ? ::open(filename.c_str(), O_RDONLY | O_CLOEXEC) : fd;
}

}  // namespace

class DataChunkFileScanner::Walk {
public:
    explicit Walk(std::string filename);

    bool Next();
    bool FindNext();
    void GoTo(std::uint64_t position, std::uint64_t records);

    const std::string& Filename() const { return filename_; }
    std::uint64_t Version() const { return header_[0]; }
    std::uint64_t NumberOfChunks() const { return header_[1]; }
    const DataChunk& Chunk() const { return chunk_.value(); }
    std::uint64_t Position() const { return position_; }
    std::uint64_t NumberRead() const { return numberRead_; }
    End WhyItEnded() const { return end_; }

private:
    [[noreturn]] void Fail(const std::string& step) const;
    std::uint64_t Read(unsigned char* bytes, std::uint64_t size, std::uint64_t position) const;
    bool HasByteAt(std::uint64_t position) const;
    bool Stop(End end);
    bool ReadThroughDescriptor();
    bool BoundRecordsWithoutLength();

    std::string filename_;
    Descriptor file_;
    std::array<std::uint64_t, 2> header_ = {};
    std::optional<DataChunk> chunk_;
    std::uint64_t position_ = kHeaderSize;  // of the present record, or where the next one is tried
    std::uint64_t recordSize_ = 0;          // of the present record, 0 if there is none
    std::uint64_t start_ = kHeaderSize;     // where this walk began
    std::uint64_t numberRead_ = 0;
    std::uint64_t mostRecords_ = 0;
    std::uint64_t limit_ = 0;  // mostRecords_, or fewer because some records have no length
    End end_ = End::AllRead;
};

DataChunkFileScanner::Walk::Walk(std::string filename)
    : filename_(std::move(filename)), file_(OpenForReading(filename_))
{
    static_assert(sizeof header_ == kHeaderSize && kVersionPosition == 0);
    if (file_.Get() == -1) {
        Fail("open");
    }
    Read(reinterpret_cast<unsigned char*>(header_.data()), sizeof header_, 0);
    GoTo(kHeaderSize, NumberOfChunks());
}

// Reports the call that has just failed.
void DataChunkFileScanner::Walk::Fail(const std::string& step) const
{
    const std::string reason = SystemReason();
    throw std::runtime_error(Join("DataChunkFileScanner: file ", filename_, ": ", step, ": ", reason));
}

// Reads up to this size or the end of the file. Returns the bytes read.
std::uint64_t DataChunkFileScanner::Walk::Read(unsigned char* bytes, std::uint64_t size, std::uint64_t position) const
{
    std::uint64_t have = 0;
    while (have < size && position + have < kMaxPosition) {
        const std::uint64_t wanted = std::min(size - have, kMaxPosition - position - have);
        const ssize_t count = ::pread(file_.Get(), bytes + have, wanted, static_cast<off_t>(position + have));
        if (count == -1 && errno != EINTR) {
            const int error = errno;
            const std::string step = Join("read at byte ", position + have);
            errno = error;
            Fail(step);
        }
        if (count == 0) {
            break;
        }
        have += count == -1 ? 0 : static_cast<std::uint64_t>(count);
    }
    return have;
}

bool DataChunkFileScanner::Walk::HasByteAt(std::uint64_t position) const
{
    unsigned char byte = 0;
    return Read(&byte, sizeof byte, position) != 0;
}

bool DataChunkFileScanner::Walk::Stop(End end)
{
    chunk_.reset();
    end_ = end;
    return false;
}

void DataChunkFileScanner::Walk::GoTo(std::uint64_t position, std::uint64_t records)
{
    chunk_.reset();
    position_ = start_ = position;
    recordSize_ = 0;
    numberRead_ = 0;
    mostRecords_ = limit_ = records;
}

bool DataChunkFileScanner::Walk::Next()
{
    position_ += std::exchange(recordSize_, 0);
    if (numberRead_ == limit_) {
        return Stop(limit_ == mostRecords_ ? End::AllRead : End::BadRecord);
    }
    if (!ReadThroughDescriptor()) {
        return Stop(HasByteAt(position_) ? End::BadRecord : End::EndOfFile);
    }
    ++numberRead_;
    return true;
}

bool DataChunkFileScanner::Walk::ReadThroughDescriptor()
{
    if (position_ >= kMaxPosition || ::lseek64(file_.Get(), static_cast<off64_t>(position_), SEEK_SET) == -1) {
        return false;
    }
    chunk_.emplace();
    if (chunk_->ReadFrom(file_.Get()) == 0) {
        return false;
    }
    const std::uint64_t size = chunk_->GetSizeOnFile();
    const std::uint64_t last = std::max<std::uint64_t>(size, 1) - 1;
    if (last >= kMaxPosition - position_ || !HasByteAt(position_ + last)) {
        return false;
    }
    if (size == 0 && !BoundRecordsWithoutLength()) {
        return false;
    }
    recordSize_ = size;
    return true;
}

// As in a reopening, there are no more records than bytes. Returns whether one more is allowed.
bool DataChunkFileScanner::Walk::BoundRecordsWithoutLength()
{
    struct stat status = {};
    if (::fstat(file_.Get(), &status) == -1) {
        Fail("fstat");
    }
    const std::uint64_t fileSize = std::max(start_, static_cast<std::uint64_t>(status.st_size));
    limit_ = std::min(mostRecords_, fileSize - start_);
    return numberRead_ < limit_;
}

bool DataChunkFileScanner::Walk::FindNext()
{
    position_ += std::exchange(recordSize_, 0);
    GoTo(position_, UINT64_MAX);
    for (; HasByteAt(position_); ++position_) {
        if (ReadThroughDescriptor()) {
            GoTo(position_, UINT64_MAX);
            return true;
        }
    }
    GoTo(position_, UINT64_MAX);
    return Stop(End::EndOfFile);
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
