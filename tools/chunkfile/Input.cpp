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

constexpr const char* kCopy = "temporary copy: ";

// The result of a system call, which is made again if a signal interrupts it. Throws step and reason if it fails.
auto Done(auto call, const std::string& step = "")
{
    for (;;) {
        const auto result = call();
        if (result != -1) {
            return result;
        }
        if (errno != EINTR) {
            const char* const reason = std::strerror(errno);  // NOLINT(*-mt-unsafe): this program has one thread
            throw std::runtime_error(step + reason);
        }
    }
}

struct stat StatusOf(int fd)
{
    struct stat status = {};
    Done([&] { return ::fstat(fd, &status); });
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

// A file without a name in TMPDIR or /tmp. It is gone when it is closed.
int UnnamedFile()
{
    const char* const folder = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
    std::string path = folder != nullptr && *folder != '\0' ? folder : "/tmp";
    const int unnamed = ::open(path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (unnamed != -1) {
        return unnamed;
    }
    path += "/chunkfile-XXXXXX";  // some file systems have no O_TMPFILE
    const int fd = Done([&] { return ::mkostemp(path.data(), O_CLOEXEC); }, kCopy);
    ::unlink(path.c_str());
    return fd;
}

}  // namespace

Input::Input(const std::string& path) : name_(path == "-" ? "standard input" : path), path_(path)
{
    if (path == "-") {
        BecomeUnnamed();
        Append(STDIN_FILENO);
        return;
    }
    Done([&] { return ::stat(path.c_str(), &status_); });
    RefuseIrregular(status_);
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    file_.Reset(::open(path.c_str(), flags | O_NOATIME));  // leaves the access time alone, if the system permits that
    foreign_ = file_.Get() == -1 && errno == EPERM;
    if (file_.Get() == -1) {
        file_.Reset(Done([&] { return ::open(path.c_str(), flags); }));
    }
    status_ = StatusOf(file_.Get());
    char byte = 0;
    if (status_.st_size == 0 && ::pread(file_.Get(), &byte, 1, 0) == 1) {  // files of /proc say that they are empty
        const File::Descriptor file(file_.Release());
        BecomeUnnamed();
        Append(file.Get());
    }
}

Input::Input(const Input& input, std::uint64_t position, std::uint64_t size) : name_(input.name_)
{
    BecomeUnnamed();
    const auto padded = static_cast<off_t>(std::min(size, input.Size() + kMostPadding));
    Done([&] { return ::ftruncate(file_.Get(), padded); });
    for (const int fd : {file_.Get(), input.file_.Get()}) {
        Done([&] { return ::lseek(fd, static_cast<off_t>(position), SEEK_SET); });
    }
    Append(input.file_.Get());
}

void Input::BecomeUnnamed()
{
    file_.Reset(UnnamedFile());
    spooled_ = true;
    path_ = "/proc/self/fd/" + std::to_string(file_.Get());
}

// Copies what another file has from its offset on.
void Input::Append(int from)
{
    std::vector<unsigned char> bytes(65536);
    while (const ssize_t count = Done([&] { return ::read(from, bytes.data(), bytes.size()); })) {
        for (ssize_t at = 0; at < count;) {
            const auto rest = static_cast<std::size_t>(count - at);
            at += Done([&] { return ::write(file_.Get(), bytes.data() + at, rest); }, kCopy);
        }
    }
    status_ = StatusOf(file_.Get());
}

std::size_t Input::ReadAt(std::uint64_t position, unsigned char* bytes, std::size_t size) const
{
    std::size_t have = 0;
    while (have < size) {
        const auto at = static_cast<off_t>(position + have);
        const ssize_t count = Done([&] { return ::pread(file_.Get(), bytes + have, size - have, at); });
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
        return ::pread(file_.Get(), page.data(), page.size(), static_cast<off_t>(position)) != -1 || errno == EINTR;
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
        const off_t data = ::lseek(file_.Get(), static_cast<off_t>(position), SEEK_DATA);
        if (data == -1 && errno == ENXIO) {
            break;  // the rest is a hole
        }
        position = std::max(position, static_cast<std::uint64_t>(std::max<off_t>(data, 0)));
        const ssize_t count = ::pread(file_.Get(), bytes.data(), bytes.size(), static_cast<off_t>(position));
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
        return std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): this program has one thread
    }
    return foreign_ ? std::strerror(EPERM) : "";  // NOLINT(concurrency-mt-unsafe); an appender opens with O_NOATIME
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
