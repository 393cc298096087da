#include "Support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tarn/cv/logging/LoggingManager.h"

namespace fuzz {

namespace {

double ProcessorSeconds()
{
    timespec time = {};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

Input::Input(const std::uint8_t* data, std::size_t size)
{
    const std::size_t chosen = std::min(size, kChoices);
    std::copy_n(data, chosen, choices);
    file.assign(data + chosen, data + size);
}

void Check(bool holds, const char* claim)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", claim);
        std::abort();
    }
}

TimeLimit::TimeLimit() : start_(ProcessorSeconds()) {}

TimeLimit::~TimeLimit()
{
    Check(ProcessorSeconds() - start_ < 1, "one input takes less than a second");
}

MemoryFile::MemoryFile(const std::string& bytes) : fd_(::memfd_create("fuzz", MFD_CLOEXEC))
{
    Check(fd_ != -1 && ::write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
              ::lseek(fd_, 0, SEEK_SET) == 0,
          "a memory file can be made");
}

MemoryFile::~MemoryFile()
{
    ::close(fd_);
}

std::string MemoryFile::Path() const
{
    return "/proc/self/fd/" + std::to_string(fd_);
}

std::string MemoryFile::Bytes() const
{
    const off_t size = ::lseek(fd_, 0, SEEK_END);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    Check(::pread(fd_, bytes.data(), bytes.size(), 0) == size, "a memory file can be read");
    return bytes;
}

void DiscardLog()
{
    using tarn::cv::logging::LoggingManager;
    static const bool once = [] {
        for (const char* const name : {"DataChunkFileAppender", "DataChunkFileReader"}) {
            LoggingManager::SetLevel(name, 0);
        }
        LoggingManager::SetSink([](const tarn::cv::logging::LogEntry&) {});
        return true;
    }();
    static_cast<void>(once);
}

bool Equal(const DataChunk& left, const DataChunk& right)
{
    return left.GetTimePoint().Nanoseconds() == right.GetTimePoint().Nanoseconds() &&
           left.GetSizeOnFile() == right.GetSizeOnFile() && left.Fields() == right.Fields();
}

std::string RecordOf(const DataChunk& chunk)
{
    std::string record(chunk.GetSizeOnFile(), '\0');
    chunk.Write(reinterpret_cast<unsigned char*>(record.data()));
    return record;
}

std::uint64_t ChooseMaxSize(const Input& input)
{
    switch (input.choices[0] % 4) {
        case 0:
            return 0;
        case 1:
            return input.file.size();
        case 2:
            return input.file.size() + input.choices[1];
        default:
            return std::uint64_t{256} * input.choices[1];
    }
}

std::uint64_t WordAt(const std::string& bytes, std::size_t position)
{
    std::uint64_t word = 0;
    if (position < bytes.size()) {
        std::memcpy(&word, bytes.data() + position, std::min(sizeof word, bytes.size() - position));
    }
    return word;
}

}  // namespace fuzz
