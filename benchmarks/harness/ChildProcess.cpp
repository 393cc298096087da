#include "harness/ChildProcess.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iostream>
#include <stdexcept>
#include <tuple>

namespace bench {

namespace {

bool counting = false;

std::string NameOf(unsigned long long number)
{
    static const std::map<unsigned long long, std::string> names = {
        {SYS_read, "read"},           {SYS_write, "write"},
        {SYS_open, "open"},           {SYS_openat, "open"},
        {SYS_close, "close"},         {SYS_lseek, "lseek"},
        {SYS_fstat, "fstat"},         {SYS_newfstatat, "fstat"},
        {SYS_mmap, "mmap"},           {SYS_munmap, "munmap"},
        {SYS_mremap, "mremap"},       {SYS_madvise, "madvise"},
        {SYS_mprotect, "mprotect"},   {SYS_brk, "brk"},
        {SYS_getxattr, "getxattr"},   {SYS_fgetxattr, "fgetxattr"},
        {SYS_setxattr, "setxattr"},   {SYS_fsetxattr, "fsetxattr"},
        {SYS_listxattr, "listxattr"}, {SYS_removexattr, "removexattr"}};
    const auto found = names.find(number);
    return found == names.end() ? "call " + std::to_string(number) : found->second;
}

// Never returns, so that the child runs none of the code of its parent.
[[noreturn]] void EndChild(const std::function<void()>& function)
{
    try {
        function();
        ::_exit(0);
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << '\n';
    }
    ::_exit(1);
}

pid_t Fork()
{
    const pid_t child = ::fork();
    if (child == -1) {
        throw std::runtime_error("cannot fork");
    }
    return child;
}

std::map<std::string, std::uint64_t> Trace(pid_t child)
{
    std::map<std::string, std::uint64_t> counts;
    int status = 0;
    ::waitpid(child, &status, 0);  // until it stops itself
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (bool entering = true; WIFSTOPPED(status); entering = !entering) {
        ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        ::waitpid(child, &status, 0);
        user_regs_struct registers = {};
        if (entering && WIFSTOPPED(status) && ::ptrace(PTRACE_GETREGS, child, nullptr, &registers) == 0 &&
            registers.orig_rax != SYS_exit_group) {
            ++counts[NameOf(registers.orig_rax)];
        }
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error("the traced child failed");
    }
    return counts;
}

}  // namespace

std::vector<std::uint64_t> InChild(const std::function<std::vector<std::uint64_t>()>& function)
{
    std::array<int, 2> ends = {};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    const pid_t child = Fork();
    if (child == 0) {
        EndChild([&] {
            const std::vector<std::uint64_t> figures = function();
            std::ignore = ::write(ends[1], figures.data(), figures.size() * sizeof figures[0]);
        });
    }
    ::close(ends[1]);
    std::array<std::uint64_t, 16> figures = {};
    const ssize_t size = ::read(ends[0], figures.data(), sizeof figures);
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (size <= 0 || status != 0) {
        throw std::runtime_error("the measured child failed");
    }
    return {figures.begin(), figures.begin() + size / static_cast<ssize_t>(sizeof figures[0])};
}

std::map<std::string, std::uint64_t> CountSystemCalls(const Contender& contender)
{
    const pid_t child = Fork();
    if (child == 0) {
        EndChild([&] {
            counting = true;
            contender.prepare();
            ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            ::kill(::getpid(), SIGSTOP);
            contender.run();
        });
    }
    return Trace(child);
}

bool CountingSystemCalls()
{
    return counting;
}

}  // namespace bench
