#pragma once

#include <sys/stat.h>
#include <xxhash.h>

#include <map>

#include "support/StraightforwardAppender.h"

// Chunk, reader and appender a second time, written the obvious way from their documentation alone.
namespace model {

class Record {
public:
    using TimePoint = Corvane::Time::TimePoint;
    using Fields = std::map<std::string, std::string>;

    explicit Record(TimePoint timePoint = TimePoint(0)) : timePoint_(timePoint) {}
    TimePoint GetTimePoint() const { return timePoint_; }
    std::uint64_t GetSizeOnFile() const { return size_; }
    const Fields& GetFields() const { return fields_; }

    void Set(const std::string& name, const std::string& value)
    {
        fields_[name] = value;
        size_ = Bytes(timePoint_, fields_, {}).size();
    }

    void Write(unsigned char* record) const
    {
        if (!complete_) {
            throw std::logic_error("a chunk with skipped fields has no record to write");
        }
        const std::string bytes = Bytes(timePoint_, fields_, {});
        std::copy(bytes.begin(), bytes.end(), record);
    }

    std::uint64_t ReadFrom(const unsigned char* record) { return Read(record, UINT64_MAX, nullptr); }

    // Reads a record from `available` bytes, with the named fields or, for null, with all of them. It is good if writing
    // what it holds gives the same bytes.
    std::uint64_t Read(const unsigned char* record, std::uint64_t available, const std::set<std::string>* names)
    {
        if (available < kHeadSize || Checksum(Copy(record, 32)) != Load<std::uint64_t>(record + 32)) {
            return 0;
        }
        const std::uint64_t size = Load<std::uint32_t>(record + 4);
        const std::uint64_t directoryEnd = kHeadSize + Load<std::uint32_t>(record + 16);
        if (size > std::min<std::uint64_t>(available, 1'073'741'824) || directoryEnd > size) {
            return 0;
        }
        Record read(TimePoint(Load<std::int64_t>(record + 8)));
        Checksums skipped;
        std::uint64_t value = directoryEnd;
        for (std::uint64_t entry = kHeadSize; directoryEnd - entry >= 16;
             entry += 16 + Load<std::uint32_t>(record + entry)) {
            const std::uint64_t nameSize = Load<std::uint32_t>(record + entry);
            const std::uint64_t valueSize = Load<std::uint32_t>(record + entry + 4);
            if (nameSize > directoryEnd - entry - 16 || valueSize > size - value) {
                return 0;
            }
            const std::string name = Copy(record + entry + 16, nameSize);
            read.fields_[name] = Copy(record + value, valueSize);
            if (names != nullptr && names->count(name) == 0) {
                skipped[name] = Load<std::uint64_t>(record + entry + 8);
            }
            value += valueSize;
        }
        if (Bytes(read.timePoint_, read.fields_, skipped) != Copy(record, size)) {
            return 0;
        }
        for (const auto& field : skipped) {
            read.fields_.erase(field.first);
        }
        read.complete_ = skipped.empty();
        read.size_ = size;
        *this = read;
        return size;
    }

private:
    using Checksums = std::map<std::string, std::uint64_t>;
    static constexpr std::uint64_t kHeadSize = 40;

    // A field that was skipped keeps the checksum that was read, right or wrong.
    static std::string Bytes(TimePoint timePoint, const Fields& fields, const Checksums& skipped)
    {
        std::string directory;
        std::string values;
        for (const auto& [name, value] : fields) {
            const auto found = skipped.find(name);
            directory += Word<std::uint32_t>(name.size()) + Word<std::uint32_t>(value.size()) +
                         Word<std::uint64_t>(found == skipped.end() ? Checksum(value) : found->second) + name;
            values += value;
        }
        const std::string head = "CVC1" + Word<std::uint32_t>(kHeadSize + directory.size() + values.size()) +
                                 Word<std::int64_t>(timePoint.Nanoseconds()) + Word<std::uint32_t>(directory.size()) +
                                 Word<std::uint32_t>(fields.size()) + Word<std::uint64_t>(Checksum(directory));
        return head + Word<std::uint64_t>(Checksum(head)) + directory + values;
    }

    static std::uint64_t Checksum(const std::string& bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }

    static std::string Copy(const unsigned char* bytes, std::uint64_t size)
    {
        return {reinterpret_cast<const char*>(bytes), size};
    }

    template <typename Integer>
    static Integer Load(const unsigned char* bytes)
    {
        Integer integer = 0;
        std::memcpy(&integer, bytes, sizeof integer);
        return integer;
    }

    template <typename Integer, typename Number>
    static std::string Word(Number number)
    {
        const auto integer = static_cast<Integer>(number);
        return {reinterpret_cast<const char*>(&integer), sizeof integer};
    }

    TimePoint timePoint_;
    Fields fields_;
    std::uint64_t size_ = kHeadSize;
    bool complete_ = true;
};

// No record of a life is longer than this tail.
using Appender = support::StraightforwardAppender<Record, std::size_t{1} << 20U>;

class Reader {
public:
    explicit Reader(std::string filename)
        : filename_(std::move(filename)), fd_(::open(filename_.c_str(), O_RDONLY | O_NOATIME))
    {
        if (fd_ == -1) {
            const std::string text = "DataChunkFileReader could not open file " + filename_;
            Log(50, text);
            throw std::runtime_error(text);
        }
        const std::vector<unsigned char> header = Rest(0);
        std::copy_n(header.data(), std::min(header.size(), sizeof header_), reinterpret_cast<unsigned char*>(header_));
        Log(10, filename_ + " opened, contains " + std::to_string(header_[1]) + " chunks on version " +
                    std::to_string(header_[0]));
    }

    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() { ::close(fd_); }

    std::uint64_t GetChunk(Record& record, std::uint64_t position) { return Read(record, position, nullptr); }
    std::uint64_t GetChunk(Record& record, std::uint64_t position, const std::set<std::string>& names)
    {
        return Read(record, position, &names);
    }
    std::string GetFilename() const { return filename_; }
    std::uint64_t GetVersion() const { return header_[0]; }
    std::uint64_t GetNumberOfChunks() const { return header_[1]; }

    // The descriptor's position after a good read. 0 if no page defines it.
    std::uint64_t Stands() const { return stands_; }

private:
    std::uint64_t Read(Record& record, std::uint64_t position, const std::set<std::string>* names)
    {
        position = position < std::uint64_t{1} << 63U ? position : stands_;
        const std::vector<unsigned char> bytes = Rest(position);
        const std::uint64_t size = record.Read(bytes.data(), bytes.size(), names);
        stands_ = size == 0 ? 0 : position + size;
        return size;
    }

    std::vector<unsigned char> Rest(std::uint64_t position) const
    {
        struct stat file = {};
        ::fstat(fd_, &file);
        const std::uint64_t end = S_ISREG(file.st_mode) ? static_cast<std::uint64_t>(file.st_size) : 0;
        std::vector<unsigned char> bytes(position < end ? end - position : 0);
        const ssize_t read = ::pread(fd_, bytes.data(), bytes.size(), static_cast<off_t>(position));
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(read, 0)));
        return bytes;
    }

    static void Log(std::int32_t level, const std::string& text)
    {
        auto& logger = tarn::cv::logging::LoggingManager::GetLogger("DataChunkFileReader");
        if (logger.GetCurrentLevel() <= level) {
            logger.Log(level, text, __FILE__, __LINE__);
        }
    }

    std::string filename_;
    int fd_;
    std::uint64_t header_[2] = {};
    std::uint64_t stands_ = 0;
};

}  // namespace model
