#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <system_error>

#include "Corvane/File/ExtendedAttributes.h"
#include "support/Files.h"
#include "support/LogCapture.h"

// Prints the limits of the file system at CORVANE_TEST_FOLDER, as cells of a Markdown table's row.
namespace {

using Corvane::File::ExtendedAttributes;

constexpr std::size_t kMostNames = 10'000;  // the search stops here

// The largest allowed size up to `most`; assumes that every smaller size is allowed.
std::size_t Largest(std::size_t most, const std::function<bool(std::size_t)>& isAllowed)
{
    std::size_t allowed = 0;
    std::size_t refused = most + 1;
    while (allowed + 1 < refused) {
        const std::size_t size = allowed + (refused - allowed) / 2;
        (isAllowed(size) ? allowed : refused) = size;
    }
    return allowed;
}

std::string NameOf(std::size_t number)
{
    return "user.n" + std::to_string(10'000 + number);
}

class Prober {
public:
    std::string Row()
    {
        support::WriteFile(path_, "content");
        const bool hasAttributes = Write("user.x", "");
        const std::string values = hasAttributes ? Values() : "none | " + reason_;
        const std::string names = hasAttributes ? Names() : "none | " + reason_ + " | -";
        return values + " | " + names + " | " + FileNames() + " | " + NoAccessTime();
    }

private:
    // Returns whether the attribute was written; if not, reason_ holds the reason.
    bool Write(const std::string& name, const std::string& value)
    {
        bool success = false;
        ExtendedAttributes::Write(path_, name, value, success);
        KeepReason(success);
        return success;
    }

    std::size_t Listed()
    {
        bool success = false;
        const std::size_t count = ExtendedAttributes::List(path_, success).size();
        KeepReason(success);
        return count;
    }

    // The text after the last colon of the failure's log entry.
    void KeepReason(bool success)
    {
        if (!success) {
            const std::string record = log_.Lines().back();
            reason_ = record.substr(record.rfind(": ") + 2);
        }
        log_.Clear();
    }

    bool WriteAnew(std::size_t size)
    {
        bool ignored = false;
        ExtendedAttributes::Remove(path_, "user.x", ignored);
        return Write("user.x", std::string(size, 'v'));
    }

    // The largest value of a file's only attribute, and the reason why one byte more is refused.
    std::string Values()
    {
        const std::size_t largest = Largest(65'536, [this](std::size_t size) { return WriteAnew(size); });
        WriteAnew(largest + 1);
        return std::to_string(largest) + " | " + reason_;
    }

    // How many names of eleven bytes with empty values fit, why one more is refused, and how many can be listed.
    std::string Names()
    {
        std::size_t count = 0;
        while (count < kMostNames && Write(NameOf(count), "")) {
            ++count;
        }
        const std::string full =
            count < kMostNames ? std::to_string(count) + " | " + reason_ : "over " + std::to_string(count) + " | -";
        std::size_t listed = Listed();
        const std::string whyNot = listed < count ? " (then " + reason_ + ")" : "";
        while (listed < count) {
            ExtendedAttributes::Remove(path_, NameOf(--count));
            listed = Listed();
        }
        return full + " | " + (whyNot.empty() ? "all" : std::to_string(listed) + whyNot);
    }

    // The longest name of a file.
    std::string FileNames() const
    {
        return std::to_string(Largest(4096, [this](std::size_t size) {
            const std::string name = folder_ / std::string(size, 'f');
            const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            ::close(fd);
            ::unlink(name.c_str());
            return fd != -1;
        }));
    }

    // Whether a read through O_NOATIME keeps the access time.
    std::string NoAccessTime() const
    {
        const struct timespec times[2] = {{.tv_sec = 1, .tv_nsec = 0}, {.tv_sec = 2, .tv_nsec = 0}};
        ::utimensat(AT_FDCWD, path_.c_str(), times, 0);
        const int fd = ::open(path_.c_str(), O_RDONLY | O_NOATIME | O_CLOEXEC);
        if (fd == -1) {
            return std::generic_category().message(errno);
        }
        char byte = 0;
        struct stat status = {};
        const bool read = ::read(fd, &byte, 1) == 1;
        ::close(fd);
        ::stat(path_.c_str(), &status);
        return read && status.st_atime == 1 ? "kept" : "not kept";
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "file";
    support::LogCapture log_{10};
    std::string reason_;
};

}  // namespace

int main()
{
    try {
        std::cout << Prober().Row() << '\n';
    } catch (const std::exception& error) {
        std::cerr << "limits: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
