#include "chunkfile/Spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kBlock = 65536;

// Makes the call again if a signal interrupts it. Throws if it fails.
std::size_t Done(auto call)
{
    for (;;) {
        const ssize_t count = call();
        if (count != -1) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR) {
            ThrowReason();
        }
    }
}

}  // namespace

void OwnedFile::Own(int fd)
{
    const int before = std::exchange(fd_, fd);
    if (before != -1) {
        ::close(before);
    }
}

void ThrowReason()
{
    throw std::runtime_error(std::strerror(errno));  // NOLINT(concurrency-mt-unsafe): this program has one thread
}

int UnnamedFile()
{
    const char* const folder = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
    std::string path = folder != nullptr && *folder != '\0' ? folder : "/tmp";
    const int unnamed = ::open(path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (unnamed != -1) {
        return unnamed;
    }
    path += "/chunkfile-XXXXXX";  // some file systems have no O_TMPFILE
    const int fd = ::mkostemp(path.data(), O_CLOEXEC);
    if (fd == -1) {
        ThrowReason();
    }
    ::unlink(path.c_str());
    return fd;
}

void Copy(int from, int to)
{
    std::vector<unsigned char> bytes(kBlock);
    while (const std::size_t count = Done([&] { return ::read(from, bytes.data(), bytes.size()); })) {
        WriteAll(to, bytes.data(), count);
    }
}

void WriteAll(int fd, const unsigned char* bytes, std::size_t size)
{
    while (size != 0) {
        const std::size_t count = Done([&] { return ::write(fd, bytes, size); });
        bytes += count;
        size -= count;
    }
}

}  // namespace Corvane::FileTool
