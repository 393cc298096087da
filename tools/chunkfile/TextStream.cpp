#include "chunkfile/TextStream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "chunkfile/Interrupts.h"

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kBlock = 65536;
constexpr int kPatience = 200;  // milliseconds

[[noreturn]] void ThrowReason()
{
    throw std::runtime_error(std::strerror(errno));  // NOLINT(concurrency-mt-unsafe): this program has one thread
}

}  // namespace

TextStream::TextStream(const std::string& path)
    : file_(path == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC))
{
    struct stat status = {};
    if (file_.Get() == -1 || ::fstat(file_.Get(), &status) == -1) {
        ThrowReason();
    }
    size_ = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

bool TextStream::Fetch()
{
    if (isCut_ || !WaitForBytes()) {
        isCut_ = true;
        return false;
    }
    MakeRoom();
    for (;;) {
        const ssize_t count = ::read(file_.Get(), buffer_.data() + end_, buffer_.size() - end_ - kPadding);
        if (count != -1) {
            end_ += static_cast<std::size_t>(count);
            return count != 0;
        }
        if (errno != EINTR) {
            ThrowReason();
        }
    }
}

// A long row doubles the buffer.
void TextStream::MakeRoom()
{
    if (buffer_.size() - end_ >= kBlock + kPadding) {
        return;
    }
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= std::exchange(begin_, 0);
    if (buffer_.size() - end_ < kBlock + kPadding) {
        buffer_.resize(end_ + std::max(kBlock, end_) + kPadding);
    }
}

// Returns false if Ctrl-C comes first. A signal between the question and the system call is seen after kPatience.
bool TextStream::WaitForBytes() const
{
    pollfd wanted = {file_.Get(), POLLIN, 0};
    while (Interrupts::Count() == 0) {
        if (const int ready = ::poll(&wanted, 1, kPatience); ready != 0 && (ready != -1 || errno != EINTR)) {
            return true;  // what is wrong, the read will tell
        }
    }
    return false;
}

}  // namespace Corvane::FileTool
