#include "chunkfile/Input.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Corvane::FileTool {

namespace {

constexpr std::uint64_t kPage = 4096;

[[noreturn]] void Fail()
{
    throw std::runtime_error(std::strerror(errno));
}

int Retried(auto call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return static_cast<int>(result);
}

// A file without a name in TMPDIR or /tmp. It is gone when it is closed.
int UnnamedFile()
{
    const char* const folder = ::getenv("TMPDIR");
    std::string path = folder != nullptr && *folder != '\0' ? folder : "/tmp";
    const int unnamed = ::open(path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (unnamed != -1) {
        return unnamed;
    }
    path += "/chunkfile-XXXXXX";  // some file systems have no O_TMPFILE
    const int fd = ::mkostemp(path.data(), O_CLOEXEC);
    if (fd == -1) {
        Fail();
    }
    ::unlink(path.c_str());
    return fd;
}

void WriteAll(int fd, const unsigned char* bytes, std::size_t size)
{
    while (size != 0) {
        const int count = Retried([&] { return ::write(fd, bytes, size); });
        if (count == -1) {
            Fail();
        }
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
}

// Copies the rest of `from` to an unnamed file.
int Spooled(int from)
{
    const int fd = UnnamedFile();
    std::array<unsigned char, 65536> bytes = {};
    for (;;) {
        const int count = Retried([&] { return ::read(from, bytes.data(), bytes.size()); });
        if (count == -1) {
            Fail();
        }
        if (count == 0) {
            return fd;
        }
        WriteAll(fd, bytes.data(), static_cast<std::size_t>(count));
    }
}

struct stat StatusOf(int fd)
{
    struct stat status = {};
    if (::fstat(fd, &status) == -1) {
        Fail();
    }
    return status;
}

void RefuseIrregular(const struct stat& status)
{
    if (S_ISDIR(status.st_mode)) {
        throw std::runtime_error("is a folder");
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error("not a regular file");
    }
}

// Files of /proc say that they are empty, and are not.
bool StatesNoLength(int fd)
{
    char byte = 0;
    return ::pread(fd, &byte, 1, 0) == 1;
}

}  // namespace

Input::Input(const std::string& path) : name_(path == "-" ? "standard input" : path), path_(path)
{
    if (path == "-") {
        BecomeSpooled(Spooled(STDIN_FILENO));
        return;
    }
    if (::stat(path.c_str(), &status_) == -1) {
        Fail();
    }
    RefuseIrregular(status_);
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    fd_ = ::open(path.c_str(), flags | O_NOATIME);  // leaves the access time alone, if the system permits that
    foreign_ = fd_ == -1 && errno == EPERM;
    if (foreign_) {
        fd_ = ::open(path.c_str(), flags);
    }
    if (fd_ == -1) {
        Fail();
    }
    status_ = StatusOf(fd_);
    if (status_.st_size == 0 && StatesNoLength(fd_)) {
        const int file = fd_;
        BecomeSpooled(Spooled(file));
        ::close(file);
    }
}

Input::Input(const Input& input, std::uint64_t position, std::uint64_t size) : name_(input.name_)
{
    const int fd = UnnamedFile();
    BecomeSpooled(fd);
    if (::ftruncate(fd, static_cast<off_t>(std::min(size, input.Size() + kMostPadding))) == -1 ||
        ::lseek(fd, static_cast<off_t>(position), SEEK_SET) == -1) {
        Fail();
    }
    std::vector<unsigned char> bytes(65536);
    while (const std::size_t count = input.ReadAt(position, bytes.data(), bytes.size())) {
        WriteAll(fd, bytes.data(), count);
        position += count;
    }
    status_ = StatusOf(fd);
}

void Input::BecomeSpooled(int fd)
{
    fd_ = fd;
    spooled_ = true;
    path_ = "/proc/self/fd/" + std::to_string(fd);
    status_ = StatusOf(fd);
}

Input::~Input()
{
    ::close(fd_);
}

std::uint64_t Input::Size() const
{
    return static_cast<std::uint64_t>(status_.st_size);
}

std::uint64_t Input::Allocated() const
{
    return static_cast<std::uint64_t>(status_.st_blocks) * 512;
}

std::size_t Input::ReadAt(std::uint64_t position, unsigned char* bytes, std::size_t size) const
{
    std::size_t have = 0;
    while (have < size) {
        const ssize_t count = ::pread(fd_, bytes + have, size - have, static_cast<off_t>(position + have));
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count == -1) {
            Fail();
        }
        if (count == 0) {
            break;
        }
        have += static_cast<std::size_t>(count);
    }
    return have;
}

std::optional<Range> Input::UnreadableIn(Range range) const
{
    std::array<unsigned char, kPage> page = {};
    const auto isReadable = [&](std::uint64_t position) {
        return ::pread(fd_, page.data(), page.size(), static_cast<off_t>(position)) != -1 || errno == EINTR;
    };
    range.end = std::min(range.end, Size());
    for (std::uint64_t at = range.begin - range.begin % kPage; at < range.end; at += kPage) {
        if (isReadable(at)) {
            continue;
        }
        std::uint64_t end = at + kPage;
        while (end < Size() && !isReadable(end)) {
            end += kPage;
        }
        return Range{std::max(at, range.begin), std::min(end, Size())};
    }
    return {};
}

std::uint64_t Input::SkipZeros(std::uint64_t position) const
{
    std::array<unsigned char, 65536> bytes = {};
    while (position < Size()) {
        const off_t data = ::lseek(fd_, static_cast<off_t>(position), SEEK_DATA);
        if (data == -1 && errno == ENXIO) {
            break;  // the rest is a hole
        }
        position = std::max(position, static_cast<std::uint64_t>(std::max<off_t>(data, 0)));
        const ssize_t count = ::pread(fd_, bytes.data(), bytes.size(), static_cast<off_t>(position));
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count == 0 ? Size() : position;
        }
        const auto* const end = bytes.data() + count;
        const auto* const other = std::find_if(std::as_const(bytes).data(), end, [](auto byte) { return byte != 0; });
        position += static_cast<std::uint64_t>(other - bytes.data());
        if (other != end) {
            return position;
        }
    }
    return Size();
}

std::string Input::WhyNotWritable() const
{
    if (!spooled_ && ::faccessat(AT_FDCWD, path_.c_str(), W_OK, AT_EACCESS) == -1) {
        return std::strerror(errno);
    }
    return foreign_ ? std::strerror(EPERM) : "";  // an appender opens with O_NOATIME
}

bool Input::HasChanged() const
{
    struct stat now = {};
    if (spooled_) {
        return false;
    }
    return ::stat(path_.c_str(), &now) == -1 || now.st_dev != status_.st_dev || now.st_ino != status_.st_ino ||
           now.st_size != status_.st_size || now.st_mtim.tv_sec != status_.st_mtim.tv_sec ||
           now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec;
}

}  // namespace Corvane::FileTool
