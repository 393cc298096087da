// A disk that logs what a file system asks of it, for reordered_cuts.py: a FUSE folder with two files.
//   disk  the bytes of IMAGE. Each write and each flush is also an entry of LOG.
//   mark  write-only. Each write is an entry of LOG: the script's own notes between the disk's.
// An entry of LOG is its kind ('W', 'F' or 'M'), its byte position (8 bytes), its length (8 bytes) and its bytes.
// usage: logging_disk IMAGE LOG FOLDER, which serves until FOLDER is unmounted.
#define FUSE_USE_VERSION 31

#include <fcntl.h>
#include <fuse3/fuse.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <string_view>
#include <system_error>

namespace {

constexpr std::string_view kDisk = "/disk";
constexpr std::string_view kMark = "/mark";

int image = -1;
int logFile = -1;

// True if the log now ends with this entry.
bool Log(char kind, std::uint64_t position, const char* bytes, std::uint64_t size)
{
    iovec parts[] = {
        {&kind, 1},
        {&position, sizeof position},
        {&size, sizeof size},
        {const_cast<char*>(bytes), size}};  // NOLINT(cppcoreguidelines-pro-type-const-cast): writev only reads
    return ::writev(logFile, parts, 4) == static_cast<ssize_t>(1 + sizeof position + sizeof size + size);
}

int GetAttributes(const char* path, struct stat* status, fuse_file_info* /*info*/)
{
    if (::fstat(image, status) == -1) {
        return -errno;
    }
    status->st_nlink = 1;
    if (path == kDisk) {
        return 0;
    }
    status->st_size = 0;
    status->st_mode = path == kMark ? S_IFREG | 0600 : S_IFDIR | 0700;
    return path == kMark || std::strcmp(path, "/") == 0 ? 0 : -ENOENT;
}

int Open(const char* path, fuse_file_info* info)
{
    info->direct_io = path == kMark ? 1 : 0;
    return 0;
}

int Read(const char* /*path*/, char* buffer, std::size_t size, off_t position, fuse_file_info* /*info*/)
{
    const ssize_t count = ::pread(image, buffer, size, position);
    return count == -1 ? -errno : static_cast<int>(count);
}

int Write(const char* path, const char* buffer, std::size_t size, off_t position, fuse_file_info* /*info*/)
{
    const bool isDisk = path == kDisk;
    if (isDisk && ::pwrite(image, buffer, size, position) != static_cast<ssize_t>(size)) {
        return -EIO;
    }
    return Log(isDisk ? 'W' : 'M', static_cast<std::uint64_t>(position), buffer, size) ? static_cast<int>(size) : -EIO;
}

// The loop device turns the file system's flush into a sync of this file.
int Flush(const char* /*path*/, int /*dataOnly*/, fuse_file_info* /*info*/)
{
    return Log('F', 0, nullptr, 0) ? 0 : -EIO;
}

int Serve(const char* folder)
{
    fuse_operations operations = {};
    operations.getattr = GetAttributes;
    operations.open = Open;
    operations.read = Read;
    operations.write = Write;
    operations.fsync = Flush;
    char name[] = "logging_disk";
    char* arguments[] = {name, nullptr};
    fuse_args none = {1, arguments, 0};
    fuse* const served = ::fuse_new(&none, &operations, sizeof operations, nullptr);
    if (served == nullptr || ::fuse_mount(served, folder) != 0) {
        return 1;
    }
    const int result = ::fuse_loop(served);  // one thread, so the log has the order of the requests
    ::fuse_destroy(served);
    return result == 0 ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments)
{
    if (count != 4) {
        std::cerr << "usage: logging_disk IMAGE LOG FOLDER\n";
        return 2;
    }
    image = ::open(arguments[1], O_RDWR | O_CLOEXEC);
    logFile = ::open(arguments[2], O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    if (image == -1 || logFile == -1) {
        std::cerr << "logging_disk: " << arguments[image == -1 ? 1 : 2] << ": "
                  << std::generic_category().message(errno) << '\n';
        return 1;
    }
    return Serve(arguments[3]);
}
