#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

namespace support {

// A new folder, removed with all that is in it. In CORVANE_TEST_FOLDER if that is set, else under TMPDIR or /tmp.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    // The names in it.
    std::set<std::string> Names() const;

private:
    std::string path_;
};

// The whole file; throws std::runtime_error with its name where that fails.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

// An unsigned 64-bit word as it lies in a file.
std::string Word(std::uint64_t value);
std::uint64_t WordAt(const std::string& bytes, std::size_t position);

// Whether a sanitizer watches, which takes memory and address space of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// The numbers of this process's open descriptors.
std::set<int> OpenDescriptors();

// The most memory that this process has had, in bytes; throws std::runtime_error where the system does not tell.
std::uint64_t PeakMemory();

// Runs the function in a child process. 0: it returned and no expectation in it failed; 1: one failed or it threw
// (printed to stderr); 128 + n: signal n ended it.
int RunInChild(const std::function<void()>& function);

// Gives up root for good, for use in a child: user and group 65534.
void BecomeUnprivileged();

}  // namespace support
