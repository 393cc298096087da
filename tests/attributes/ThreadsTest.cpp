#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Corvane/File/ExtendedAttributes.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::ExtendedAttributes;

constexpr int kThreads = 4;
constexpr int kRounds = 300;

class Threads : public testing::Test {
protected:
    void SetUp() override
    {
        for (int i = 0; i < kThreads; ++i) {
            support::WriteFile(folder_ / std::to_string(i), "");
        }
        if (::setxattr((folder_ / "0").c_str(), "user.probe", "", 0, 0) != 0) {
            GTEST_SKIP() << "no extended attributes on this file system: " << std::generic_category().message(errno);
        }
    }

    // All operations on one attribute of a file; the second removal fails.
    static void Work(const std::string& path, const std::string& name)
    {
        bool success = false;
        for (int i = 0; i < kRounds; ++i) {
            const std::string value(static_cast<std::size_t>(i % 100),
                                    'v');  // small, so that all threads' values fit into one file's attributes
            ExtendedAttributes::Write(path, name, value, success);
            EXPECT_TRUE(success);
            EXPECT_EQ(ExtendedAttributes::Read(path, name, success), value);
            ExtendedAttributes::List(path, success);  // fails if another thread adds a name meanwhile
            ExtendedAttributes::Remove(path, name, success);
            EXPECT_TRUE(success);
            ExtendedAttributes::Remove(path, name, success);
            EXPECT_FALSE(success);
        }
    }

    void RunThreadsOn(int files)
    {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(Work, folder_ / std::to_string(i % files), "user.n" + std::to_string(i));
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_GE(log_.Entries().size(), static_cast<std::size_t>(kThreads * kRounds));
    }

    support::TemporaryFolder folder_;
    support::LogCapture log_;
};

TEST_F(Threads, ShareOneFile)
{
    RunThreadsOn(1);
}

TEST_F(Threads, HaveAFileEach)
{
    RunThreadsOn(kThreads);
}

}  // namespace
