#include "Corvane/File/DataChunkFileAppender.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/Descriptor.h"
#include "Corvane/File/FileImage.h"
#include "Corvane/File/Log.h"
#include "Corvane/File/TimePoints.h"
#include "Corvane/File/XattrNames.h"  // kept on purpose: a copy of the names, unused
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::File {

using Pellin::DataChunk;
using tarn::cv::logging::LoggingManager;
using Time::TimePoint;

namespace {

constexpr mode_t kFileMode = 0664;

// Stores a header word. An image that is too short gets the bytes that fit.
void StoreWord(FileImage& image, std::uint64_t position, std::uint64_t word)
{
    std::memcpy(image.Data() + position, &word, std::min(sizeof word, image.Size() - position));
}

std::uint64_t LoadWord(const FileImage& image, std::uint64_t position)
{
    std::uint64_t word = 0;
    std::memcpy(&word, image.Data() + position, sizeof word);
    return word;
}

// Reads once, and again if a signal interrupts it. Returns bytes read, 0 at the end of the file, -1 on an error.
ssize_t ReadOnce(int fd, unsigned char* bytes, std::uint64_t size)
{
    ssize_t count = 0;
    do {
        count = ::read(fd, bytes, size);
    } while (count == -1 && errno == EINTR);
    return count;
}

// Restores the image when it goes out of scope, unless Keep() was called.
class Rollback {
public:
    explicit Rollback(FileImage& image) : image_(image), imageSize_(image.Size()) {}
    Rollback(const Rollback&) = delete;
    Rollback& operator=(const Rollback&) = delete;
    ~Rollback()
    {
        if (!kept_) {
            std::fill_n(std::copy(loaded_.begin(), loaded_.end(), image_.Data() + at_), size_ - loaded_.size(), 0);
            image_.Shrink(imageSize_);
        }
    }

    // Call before [at, at + size) is written. Only bytes below loadedSize came from a file; the others are zero.
    void Save(std::uint64_t at, std::uint64_t size, std::uint64_t loadedSize)
    {
        if (at < loadedSize) {
            loaded_.assign(image_.Data() + at, image_.Data() + at + std::min(size, loadedSize - at));
        }
        at_ = at;
        size_ = size;
    }

    void Keep() { kept_ = true; }

private:
    FileImage& image_;
    std::uint64_t imageSize_;
    std::uint64_t at_ = 0;
    std::uint64_t size_ = 0;
    std::vector<unsigned char> loaded_;
    bool kept_ = false;
};

}  // namespace

DataChunkFileAppender::DataChunkFileAppender(std::string filename, bool reopen, std::uint64_t maxSize)
    : filename_(std::move(filename)),
      maxSize_(maxSize),
      data_(std::make_unique<FileImage>(/* withTail = */ reopen)),
      currentSize_(kHeaderSize),
      chunkNumber_(0),
      fd_(-1),
      timePoints_(std::make_unique<TimePoints>()),
      chunkNumberAttribute_("user.numberChunksInFile"),
      flushDisabled_(false),
      logger_(LoggingManager::GetLoggerPtr("DataChunkFileAppender")),
      loadedSize_(0)
{
    if (maxSize_ != 0) {
        data_->Cover(0, maxSize_);
        StoreWord(*data_, kVersionPosition, kFormatVersion);
    }
    if (reopen) {
        Reopen();
    }
    // Kept on purpose, because users rely on them: no O_TRUNC, no O_CLOEXEC, and O_NOATIME even if it is refused.
    fd_ = ::open(filename_.c_str(), O_WRONLY | O_CREAT | O_NOATIME, kFileMode);
    if (fd_ == -1) {
        const std::string reason = SystemReason();
        throw std::runtime_error(Join("DataChunkFileAppender could not open file ", filename_, ": ", reason));
    }
}

DataChunkFileAppender::~DataChunkFileAppender()
{
    if (!flushDisabled_) {
        Flush();
    }
    if (fd_ != -1) {
        ::close(fd_);
    }
}

bool DataChunkFileAppender::Append(const DataChunk& chunk)
{
    const std::uint64_t chunkSize = chunk.GetSizeOnFile();
    Rollback rollback(*data_);
    if (!MakeRoom(chunkSize)) {
        return false;
    }

    const TimePoint timePoint = chunk.GetTimePoint();
    const TimePoints::Place place = timePoints_->Find(timePoint);
    if (place.isHeld) {
        Log(logger_, kFatalLevel, [&] { return Join("TimePoint ", timePoint, " has already been appended"); });
        rollback.Keep();  // kept on purpose: an unbounded image stays grown
        return false;
    }

    // The chunk writes straight into the image. Writing into a buffer first would make the rollback trivial, but copy
    // every record twice. So what can throw comes before the members change, and the rollback restores the image.
    rollback.Save(currentSize_, chunkSize, loadedSize_);
    chunk.Write(data_->Data() + currentSize_);
    timePoints_->Insert(place, timePoint);
    rollback.Keep();
    currentSize_ += chunkSize;
    ++chunkNumber_;
    StoreWord(*data_, kChunkNumberPosition, chunkNumber_);
    return true;
}

// Makes room for a chunk of this size after the last one. Returns false if the file may not hold it.
bool DataChunkFileAppender::MakeRoom(std::uint64_t chunkSize)
{
    if (maxSize_ == 0) {
        data_->Cover(currentSize_, chunkSize);
        return true;
    }
    if (currentSize_ > maxSize_ || chunkSize > maxSize_ - currentSize_) {
        Log(logger_, kFatalLevel, [&] {
            return Join("Current file size ", currentSize_, " + chunkSize ", chunkSize, " > maxSize ", maxSize_);
        });
        return false;
    }
    if (!data_->Holds(currentSize_, chunkSize)) {
        Log(logger_, kFatalLevel, [&] {
            return Join("Data size ", data_->Size(), " is lower than currentSize_ ", currentSize_, " + chunkSize ",
                        chunkSize, ": Cannot Append chunk");
        });
        return false;
    }
    return true;
}

void DataChunkFileAppender::Flush()
{
    if (data_->Empty()) {
        return;
    }
    data_->PopulateForReading(std::max(currentSize_, loadedSize_));
    const ssize_t written = ::write(fd_, data_->Data(), data_->Size());
    if (static_cast<std::uint64_t>(written) != data_->Size()) {
        Log(logger_, kFatalLevel,
            [&] { return Join("Could not write ", data_->Size(), "B. Wrote instead: ", written); });
    }
}

std::string DataChunkFileAppender::GetFilename() const
{
    return filename_;
}

const std::set<TimePoint>& DataChunkFileAppender::GetTimePoints() const
{
    return timePoints_->Complete();
}

void DataChunkFileAppender::Reopen()
{
    const Descriptor file(::open(filename_.c_str(), O_RDONLY));
    loadedSize_ = Load(file.Get());
    if (loadedSize_ < kHeaderSize) {
        throw std::runtime_error(Join("DataChunkFileAppender: file ", filename_, " has content of only ", loadedSize_,
                                      " bytes. ", kHeaderSize, "is the minimum expected"));
    }
    if (maxSize_ != 0 && loadedSize_ > maxSize_) {
        throw std::runtime_error(Join("DataChunkFileAppender: content size ", loadedSize_,
                                      " is greater than specified size ", maxSize_, " when reading file ", filename_));
    }
    const std::uint64_t version = LoadWord(*data_, kVersionPosition);
    if (version != kFormatVersion) {
        throw std::runtime_error(Join("DataChunkFileAppender: file ", filename_, " is stored with version ", version,
                                      " instead of version ", kFormatVersion, ": we don't know how to read this file"));
    }
    chunkNumber_ = LoadWord(*data_, kChunkNumberPosition);
    Log(logger_, kInfoLevel, [&] {
        return Join("In file ", filename_, ": we discovered ", chunkNumber_, " chunks from version ", kFormatVersion);
    });
    if (chunkNumber_ == 0) {
        data_->DropTail();
        return;
    }
    if (data_->Empty()) {
        throw std::runtime_error("data_ is empty while chunkNumber is > 0");
    }
    Walk(file.Get());
    data_->DropTail();
}

// Reads the file to its end, straight into the image, and returns its length in bytes. A std::string of the content
// would be simpler, but hold the file twice. A bounded image takes its maxSize_ bytes; of a longer file only the length
// is needed. An unbounded image becomes exactly as long as the file.
//
// A file that cannot be read to its end, for whatever reason, counts as empty. If a part passed for the whole, writing
// the image back would lose the rest.
std::uint64_t DataChunkFileAppender::Load(int fd)
{
    struct stat status = {};
    if (fd == -1 || ::fstat(fd, &status) == -1) {
        return 0;
    }
    const auto announced = static_cast<std::uint64_t>(status.st_size);  // a first guess: 0 under /proc
    if (maxSize_ == 0) {
        data_->Cover(0, announced);
    }
    std::array<unsigned char, 4096> more = {};  // what follows the image, usually nothing
    std::uint64_t length = 0;
    for (;;) {
        const bool full = length >= data_->Size();
        if (full && announced > length) {
            return announced;  // refused for its length: reading a sparse file to its end can take minutes
        }
        const ssize_t count = full ? ReadOnce(fd, more.data(), more.size())
                                   : ReadOnce(fd, data_->Data() + length, data_->Size() - length);
        if (count == -1) {
            return 0;
        }
        if (count == 0) {
            break;
        }
        if (full && maxSize_ == 0) {
            data_->Cover(length, static_cast<std::uint64_t>(count));
            std::copy_n(more.data(), count, data_->Data() + length);
        }
        length += static_cast<std::uint64_t>(count);
    }
    if (maxSize_ == 0) {
        data_->Shrink(length);
    }
    return length;
}

// Finds the good records from the header on, and stops at the first bad one.
void DataChunkFileAppender::Walk(int fd)
{
    const int probe = data_->OpenTail() ? -1 : fd;
    for (std::uint64_t i = 0; i < chunkNumber_; ++i) {
        // An image holds no more records than bytes. This ends the walk if records claim to have no length.
        const bool mayBeGood =
            i < data_->Size() - kHeaderSize && currentSize_ < data_->Size() && (probe == -1 || IsWholeInFile(probe));
        DataChunk chunk;
        if (!mayBeGood || !IsGoodRecord(chunk)) {
            Log(logger_, kErrorLevel, [&] {
                return Join("Chunk ", i, " in file ", filename_, " of ", chunkNumber_,
                            " chunks is not good. We skip the remaining ", chunkNumber_ - 1 - i, " chunks");
            });
            chunkNumber_ = i;
            return;
        }
        const TimePoint timePoint = chunk.GetTimePoint();
        const TimePoints::Place place = timePoints_->Find(timePoint);
        if (!place.isHeld) {
            timePoints_->Insert(place, timePoint);
        }
        currentSize_ += chunk.GetSizeOnFile();
    }
}

// Fills the chunk with the record at currentSize_. Returns false if the record does not parse, or does not lie within
// the image.
bool DataChunkFileAppender::IsGoodRecord(DataChunk& chunk) const
{
    return chunk.ReadFrom(data_->Data() + currentSize_) != 0 && data_->Holds(currentSize_, chunk.GetSizeOnFile());
}

// Without a tail, parsing a truncated record would read past mapped memory. Reading from the descriptor meets the end
// of the file instead. Only a record that is good there, and lies within the image, is then parsed from memory.
bool DataChunkFileAppender::IsWholeInFile(int fd) const
{
    if (::lseek64(fd, static_cast<off64_t>(currentSize_), SEEK_SET) == -1) {
        throw std::bad_alloc();  // a pipe: there is no tail, and its records cannot be read twice
    }
    DataChunk chunk;
    return chunk.ReadFrom(fd) != 0 && data_->Holds(currentSize_, chunk.GetSizeOnFile());
}

}  // namespace Corvane::File
