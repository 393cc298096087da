#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "support/Files.h"

namespace {

constexpr int kWhole = 65536;  // bytes of the file that the program makes
constexpr int kLoaderFailed = 127;

// The example that replaces a file durably, as users build it; strace makes its system calls fail.
class UnchangedProgram : public testing::Test {
protected:
    void SetUp() override
    {
        if (Run({"strace", "-o", log_, "true"}) != 0) {
            GTEST_SKIP() << "strace may not trace here";
        }
        ASSERT_EQ(Run({REPLACE_FILE, path_, "old"}), 0);
        old_ = support::ReadFile(path_);
    }

    // The exit code; for a signal, 128 plus its number.
    static int Run(std::vector<std::string> command)
    {
        return support::RunInChild([&] {
            // LeakSanitizer does not work under strace.
            ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // NOLINT(concurrency-mt-unsafe): a child of one thread
            std::vector<char*> arguments;
            arguments.reserve(command.size() + 1);
            for (std::string& word : command) {
                arguments.push_back(word.data());
            }
            arguments.push_back(nullptr);
            ::execvp(arguments[0], arguments.data());
            ::_exit(127);
        });
    }

    // Runs the program; its nth call of that name fails, the calls of the loader included. Counted from 1.
    int RunRefusing(const std::string& call, const std::string& error, int nth)
    {
        support::WriteFile(path_, old_);
        const std::string inject = "inject=" + call + ":error=" + error + ":when=" + std::to_string(nth);
        return Run({"strace", "-f", "-o", log_, "-e", inject, REPLACE_FILE, path_, "new"});
    }

    bool WasRefused() const { return support::ReadFile(log_).find("(INJECTED)") != std::string::npos; }

    support::TemporaryFolder folder_;
    support::TemporaryFolder logFolder_;
    std::string path_ = folder_ / "a";
    std::string log_ = logFolder_ / "calls";
    std::string old_;
};

TEST_F(UnchangedProgram, LeavesTheOldFileOrTheNewOneWhicheverCallIsRefused)
{
    int cases = 0;
    for (const std::string call : {"openat", "write", "fchmod", "fchown", "fsync", "renameat", "close", "newfstatat"}) {
        for (const std::string error : {"EIO", "ENOSPC"}) {
            int nth = 0;
            do {
                const int result = RunRefusing(call, error, ++nth);
                const std::string file = support::ReadFile(path_);
                EXPECT_TRUE(result == 0 || result == 1 || result == kLoaderFailed)
                    << call << ' ' << nth << ": " << result;
                EXPECT_TRUE(file == old_ || (file.size() == kWhole && file.find("new") != std::string::npos));
                EXPECT_TRUE(result != 0 || file != old_) << call << ' ' << nth;
            } while (WasRefused() && nth < 100);
            EXPECT_GE(nth, 2) << call << " was never made";
            cases += nth - 1;
        }
    }
    std::cout << cases << " faults\n";
}

}  // namespace
