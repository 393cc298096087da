#include "support/Files.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace support {

TemporaryFolder::TemporaryFolder()
{
    const char* const chosen = std::getenv("CORVANE_TEST_FOLDER");  // NOLINT(concurrency-mt-unsafe): nothing sets it
    path_ = (chosen != nullptr ? std::string(chosen) : std::filesystem::temp_directory_path().string()) +
            "/chunkfiles-XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot make the folder " + path_);
    }
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Names TemporaryFolder::Names() const
{
    support::Names names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (!file || (file.peek() != std::ifstream::traits_type::eof() && !(bytes << file.rdbuf()))) {
        throw std::runtime_error("cannot read " + path);
    }
    return bytes.str();
}

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string Word(std::uint64_t value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::uint64_t WordAt(const std::string& bytes, std::size_t position)
{
    std::uint64_t value = 0;
    std::memcpy(&value, bytes.substr(position, sizeof value).data(), sizeof value);
    return value;
}

std::set<int> OpenDescriptors()
{
    std::set<int> descriptors;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename().string());
        if (entry.is_symlink() &&
            std::filesystem::read_symlink(entry.path()).string().find("/fd") == std::string::npos) {
            descriptors.insert(fd);  // not the one that lists them
        }
    }
    return descriptors;
}

std::uint64_t FromStatus(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name, 0) == 0) {
            return std::stoull(line.substr(name.size())) * 1024;
        }
    }
    throw std::runtime_error("/proc/self/status has no " + name);
}

std::uint64_t OwnMemory()
{
    return FromStatus("RssAnon:") + FromStatus("VmSwap:");
}

std::uint64_t PeakGrowth(const std::function<void()>& function)
{
    if (!(std::ofstream("/proc/self/clear_refs") << "5" << std::flush)) {  // resets VmHWM
        throw std::runtime_error("cannot reset the peak of memory");
    }
    const std::uint64_t before = FromStatus("VmHWM:");
    function();
    return FromStatus("VmHWM:") - before;
}

int RunInChild(const std::function<void()>& function)
{
    const pid_t child = ::fork();
    if (child == 0) {
        int result = 1;
        try {
            function();
            result = testing::Test::HasFailure() ? 1 : 0;
        } catch (const std::exception& error) {
            std::cerr << error.what() << '\n';
        }
        std::cout.flush();
        ::_exit(result);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void BecomeUnprivileged()
{
    constexpr id_t kNobody = 65534;
    if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) {
        throw std::runtime_error("cannot give up root");
    }
}

}  // namespace support
