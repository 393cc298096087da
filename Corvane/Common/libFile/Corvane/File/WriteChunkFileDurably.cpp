#include "Corvane/File/WriteChunkFileDurably.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/Descriptor.h"
#include "Corvane/File/FileImage.h"
#include "Corvane/File/Log.h"

namespace Corvane::File {

// What an appender is about to write, in bytes.
struct ImageSizes {
    explicit ImageSizes(const DataChunkFileAppender& appender)
        : all(appender.data_->Size()), used(appender.currentSize_), flushed(::lseek64(appender.fd_, 0, SEEK_CUR) != 0)
    {
    }

    std::uint64_t all;
    std::uint64_t used;
    bool flushed;  // the image does not go to the start of the file
};

namespace {

constexpr const char* kFreshPrefix = ".corvane.";
constexpr const char* kAccessList = "system.posix_acl_access";
constexpr mode_t kNewMode = 0664;  // before the umask
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kPermissions = 0777;
constexpr mode_t kOwnerPermissions = 0700;
constexpr mode_t kOtherPermissions = 07;

// A name that no other writer uses: the prefix and 16 hexadecimal digits.
std::string FreshBase(std::uint64_t random)
{
    std::array<char, 17> digits = {};
    std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(random));
    return kFreshPrefix + std::string(digits.data());
}

// The fresh file of one call. The destructor removes it, unless GiveName() succeeded.
class FreshFile {
public:
    // NOLINTNEXTLINE(readability-redundant-string-cstr): the system sees the name up to its first zero byte
    explicit FreshFile(const std::string& filename) : filename_(filename.c_str()) {}
    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;
    ~FreshFile()
    {
        if (isThere_) {
            ::unlinkat(folder_.Get(), base_.c_str(), 0);
        }
    }

    // The steps of a call, in their order.
    void FindTarget();
    void Create();
    void MakeReopenable() const;
    void CompareLength(const ImageSizes& image) const;
    void Shorten(std::uint64_t size) const;
    void GiveName();

    std::string Name() const { return folderName_ + base_; }

private:
    // Throws unless the system call has succeeded. Call it before anything else can change errno.
    void Require(bool success, const char* step) const
    {
        if (!success) {
            Refuse(step, SystemReason());
        }
    }

    [[noreturn]] void Refuse(const char* step, const std::string& reason) const
    {
        throw std::runtime_error(Join("WriteChunkFileDurably: file ", filename_, ": ", step, ": ", reason));
    }

    void KeepOwner();
    void DropAccessList() const;

    std::string filename_;    // as the caller gave it, up to its first zero byte
    std::string folderName_;  // empty, or with a slash at its end
    std::string targetBase_;
    std::string base_;
    Descriptor folder_;
    Descriptor file_;
    bool isThere_ = false;
    bool replaces_ = false;
    bool hadAccessList_ = false;
    struct stat old_ = {};  // the file that is replaced
    mode_t mode_ = 0;       // what the file gets with its name
};

// A dangling link is an error: following it would make a file in a folder that the caller has not named.
void FreshFile::FindTarget()
{
    std::string target = filename_;
    replaces_ = target.empty() || ::lstat(target.c_str(), &old_) == 0 || errno != ENOENT;
    if (replaces_ && !S_ISREG(old_.st_mode)) {
        std::array<char, PATH_MAX> resolved = {};
        Require(::realpath(filename_.c_str(), resolved.data()) != nullptr, "find");
        target = resolved.data();
        Require(::stat(target.c_str(), &old_) == 0, "find");
        if (!S_ISREG(old_.st_mode)) {
            Refuse("find", "not a regular file");
        }
    }
    hadAccessList_ = replaces_ && ::getxattr(target.c_str(), kAccessList, nullptr, 0) > 0;
    folderName_ = target.substr(0, target.rfind('/') + 1);  // npos + 1 is 0
    targetBase_ = target.substr(folderName_.size());
    const int folder = ::open(folderName_.empty() ? "." : folderName_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Require(folder != -1, "open the folder");
    folder_.Reset(folder);
}

void FreshFile::Create()
{
    // Only the system knows what the umask and the folder's default access list make of a mode. So a new file is made
    // with its final mode, which is noted, and is closed to others while it is empty.
    const mode_t mode = replaces_ ? kPrivateMode : kNewMode;
    int fd = -1;
    do {
        std::uint64_t random = 0;
        Require(::getrandom(&random, sizeof random, 0) == static_cast<ssize_t>(sizeof random), "create");
        base_ = FreshBase(random);
        fd = ::openat(folder_.Get(), base_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    } while (fd == -1 && errno == EEXIST);
    Require(fd != -1, "create");
    file_.Reset(fd);
    isThere_ = true;
    struct stat status = {};
    Require(::fstat(file_.Get(), &status) == 0, "create");
    mode_ = (replaces_ ? old_.st_mode : status.st_mode) & kPermissions;
    Require(::fchmod(file_.Get(), kPrivateMode) == 0, "create");
}

// A header of version 2 without chunks. An appender's own new unbounded file has version 0.
void FreshFile::MakeReopenable() const
{
    const std::array<std::uint64_t, 2> header = {kFormatVersion, 0};
    static_assert(sizeof header == kHeaderSize);
    const ssize_t written = ::write(file_.Get(), header.data(), sizeof header);
    Require(written != -1, "write");
    if (written != static_cast<ssize_t>(sizeof header)) {
        Refuse("write", Join("short write: ", written, " of ", sizeof header, " bytes"));
    }
}

// The length proves that the whole image was written, unless an earlier Flush has written a part of it.
void FreshFile::CompareLength(const ImageSizes& image) const
{
    if (image.flushed) {
        Refuse("write", "fill has flushed the appender");
    }
    struct stat status = {};
    Require(::fstat(file_.Get(), &status) == 0, "write");
    const auto length = static_cast<std::uint64_t>(status.st_size);
    if (length != image.all) {
        Refuse("write", Join("short write: ", length, " of ", image.all, " bytes"));
    }
}

// Cuts off the zeros that a refused chunk has left at the end of an unbounded image.
void FreshFile::Shorten(std::uint64_t size) const
{
    Require(::ftruncate(file_.Get(), static_cast<off_t>(size)) == 0, "write");
}

void FreshFile::GiveName()
{
    if (replaces_) {
        KeepOwner();
        DropAccessList();
    }
    Require(::fchmod(file_.Get(), mode_) == 0, "set the mode");
    Require(::fsync(file_.Get()) == 0, "sync");
    Require(::renameat(folder_.Get(), base_.c_str(), folder_.Get(), targetBase_.c_str()) == 0, "rename");
    isThere_ = false;
    Require(::fsync(folder_.Get()) == 0, "sync the folder; the new file stands");
}

// If the group changes, the old group counts as others, and the new group must not get the rights of the old one. Where
// there was an access list, the group's bits of the mode were its mask.
void FreshFile::KeepOwner()
{
    const bool isKept = ::fchown(file_.Get(), old_.st_uid, old_.st_gid) == 0 ||
                        ::fchown(file_.Get(), static_cast<uid_t>(-1), old_.st_gid) == 0;
    if (!isKept || hadAccessList_) {
        const mode_t common = mode_ & (mode_ >> 3U) & kOtherPermissions;
        mode_ = (mode_ & kOwnerPermissions) | common << 3U | common;
    }
}

// Otherwise a folder's default list would give the mode's group rights to the users that it names.
void FreshFile::DropAccessList() const
{
    Require(::fremovexattr(file_.Get(), kAccessList) == 0 || errno == ENODATA || errno == ENOTSUP, "set the mode");
}

}  // namespace

void WriteChunkFileDurably(const std::string& filename, std::uint64_t maxSize,
                           const std::function<void(DataChunkFileAppender&)>& fill,
                           const std::function<void(const std::string&)>& check)
{
    const bool bounded = maxSize != 0;
    FreshFile fresh(filename);
    fresh.FindTarget();
    fresh.Create();
    if (!bounded) {
        fresh.MakeReopenable();
    }
    const ImageSizes image = [&] {
        DataChunkFileAppender appender(fresh.Name(), /* reopen = */ !bounded, maxSize);
        fill(appender);
        return ImageSizes(appender);
    }();
    fresh.CompareLength(image);
    if (!bounded) {
        fresh.Shorten(image.used);
    }
    if (check) {
        check(fresh.Name());
    }
    fresh.GiveName();
}

}  // namespace Corvane::File
