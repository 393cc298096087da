#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "support/Texts.h"

namespace support {

// A new folder in CORVANE_TEST_FOLDER, TMPDIR or /tmp, whichever is set first. Removed with its content at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    support::Names Names() const;

private:
    std::string path_;
};

// Reads or writes a whole file; throws std::runtime_error with its name if that fails.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

// An unsigned 64-bit word as a file stores it.
std::string Word(std::uint64_t value);
std::uint64_t WordAt(const std::string& bytes, std::size_t position);

// Sanitizers take memory and address space of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

std::set<int> OpenDescriptors();

// A figure of this process in /proc/self/status, in bytes: "VmSize:" for example.
std::uint64_t FromStatus(const std::string& name);

// This process's own memory in bytes. It includes swapped pages and no file pages, so other programs do not change it.
std::uint64_t OwnMemory();

// The bytes by which the function raises this process's peak of physical memory. Swapping can only lower the result.
std::uint64_t PeakGrowth(const std::function<void()>& function);

// Runs the function in a child process.
// 0        it returned and its expectations held.
// 1        an expectation failed, or it threw; stderr has the reason.
// 128 + n  signal n ended it.
int RunInChild(const std::function<void()>& function);

// Becomes user and group 65534 for good. For use in a child.
void BecomeUnprivileged();

}  // namespace support
