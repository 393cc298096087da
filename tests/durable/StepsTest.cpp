// The steps of WriteChunkFileDurably: which calls it makes, and what is left if one of them fails.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "Corvane/File/WriteChunkFileDurably.h"
#include "support/Allocations.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::WriteChunkFileDurably;
using support::ChunkOfSize;
using support::FileOf;
using support::Lines;
using support::SystemCall;
using support::SystemCalls;

constexpr std::uint64_t kUnbounded = 0;
constexpr std::uint64_t kSize = 5000;  // bytes of a bounded file

void FillNew(DataChunkFileAppender& file)
{
    EXPECT_TRUE(file.Append(ChunkOfSize(1, 100)));
    EXPECT_TRUE(file.Append(ChunkOfSize(2, 3000)));
}

class DurableSteps : public testing::Test {
protected:
    DurableSteps() : descriptors_(support::OpenDescriptors()) {}
    ~DurableSteps() override
    {
        EXPECT_EQ(support::OpenDescriptors(), descriptors_);
        for (const std::string& name : folder_.Names()) {
            EXPECT_EQ(name, "a");
        }
    }

    // The mode of a file that replaces one with this mode.
    mode_t ModeAfterReplacing(mode_t mode) const
    {
        support::WriteFile(path_, "old");
        EXPECT_EQ(::chmod(path_.c_str(), mode), 0);
        errno = ENOENT;  // of an earlier call
        WriteChunkFileDurably(path_, kSize, FillNew);
        struct stat status = {};
        EXPECT_EQ(::stat(path_.c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    static std::string NameOf(const std::string& path)
    {
        return path.find(".corvane.") != std::string::npos ? "fresh" : "folder";
    }

    // Each call, "fresh" for the fresh file and "folder" for its folder.
    static Lines Steps(const SystemCalls& calls)
    {
        std::map<std::int64_t, std::string> names;
        Lines steps;
        for (const SystemCall& call : calls.Calls()) {
            const std::string name = call.path.empty() ? names[call.fd] : NameOf(call.path);
            if (call.name.starts_with("open")) {
                names[call.result] = name;
            }
            steps.push_back(call.name + (name.empty() ? "" : " ") + name + (call.target.empty() ? "" : " ") +
                            call.target);
        }
        std::erase_if(steps, [](const std::string& step) { return step.starts_with('m'); });  // the image's memory
        return steps;
    }

    const std::string new_ = FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 3000)});
    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    support::LogCapture log_{50};

private:
    std::set<int> descriptors_;
};

TEST_F(DurableSteps, FreshFileIsWrittenSyncedAndRenamedAndTheFolderSynced)
{
    const SystemCalls calls;
    WriteChunkFileDurably(path_, kSize, FillNew);
    EXPECT_EQ(Steps(calls),
              (Lines{"open folder", "getrandom", "openat fresh", "fstat fresh", "fchmod fresh", "open fresh",
                     "lseek64 fresh", "write fresh", "close fresh", "fstat fresh", "fchmod fresh", "fsync fresh",
                     "renameat fresh a", "fsync folder", "close fresh", "close folder"}));
}

// A link that somebody has made under the fresh name is not followed. A child process inherits neither descriptor.
TEST_F(DurableSteps, FreshFileIsNoOtherFileAndNobodyElses)
{
    const SystemCalls calls;
    WriteChunkFileDurably(path_, kSize, FillNew);
    WriteChunkFileDurably(path_, kSize, FillNew);
    EXPECT_EQ(calls.Calls("open").at(0).flags, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const auto creations = calls.Calls("openat");
    ASSERT_EQ(creations.size(), 2U);
    EXPECT_EQ(creations[0].flags, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC);
    EXPECT_EQ(creations[0].mode, 0664U);  // the system applies the umask; the next call makes the file private
    EXPECT_EQ(creations[1].mode, 0600U);
}

TEST_F(DurableSteps, FreshNameIsRandom)
{
    const SystemCalls calls;
    WriteChunkFileDurably(path_, kSize, FillNew);
    WriteChunkFileDurably(path_, kSize, FillNew);
    const auto creations = calls.Calls("openat");
    ASSERT_EQ(creations.size(), 2U);
    const std::regex documented("\\.corvane\\.[0-9a-f]{16}");
    EXPECT_TRUE(std::regex_match(creations[0].path, documented)) << creations[0].path;
    EXPECT_NE(creations[0].path, creations[1].path);
    EXPECT_EQ(calls.Calls("getrandom").at(0).flags, 0);  // waits for randomness while the system starts
}

TEST_F(DurableSteps, FreshNameThatExistsGivesWayToAnother)
{
    SystemCalls calls;
    calls.Fail("openat", EEXIST);
    WriteChunkFileDurably(path_, kUnbounded, FillNew);
    const auto creations = calls.Calls("openat");
    ASSERT_EQ(creations.size(), 2U);
    EXPECT_NE(creations[0].path, creations[1].path);
    EXPECT_EQ(support::ReadFile(path_), new_);
}

TEST_F(DurableSteps, BoundedFileHasItsMaximumSize)
{
    WriteChunkFileDurably(path_, kSize, FillNew);
    std::string expected = new_;
    expected.resize(kSize);
    EXPECT_EQ(support::ReadFile(path_), expected);
}

TEST_F(DurableSteps, UnboundedFileEndsWithItsChunksAndCanBeReopened)
{
    WriteChunkFileDurably(path_, kUnbounded, FillNew);
    EXPECT_EQ(support::ReadFile(path_), new_);
    EXPECT_TRUE(DataChunkFileAppender(path_, true, kUnbounded).Append(ChunkOfSize(3, 100)));
}

TEST_F(DurableSteps, UnboundedFileWithoutChunksIsAHeader)
{
    WriteChunkFileDurably(path_, kUnbounded, [](DataChunkFileAppender&) {});
    EXPECT_EQ(support::ReadFile(path_), FileOf({}));
}

TEST_F(DurableSteps, RefusedChunkLeavesNoZerosAtTheEnd)
{
    WriteChunkFileDurably(path_, kUnbounded, [](DataChunkFileAppender& file) {
        FillNew(file);
        EXPECT_FALSE(file.Append(ChunkOfSize(2, 500)));
    });
    EXPECT_EQ(support::ReadFile(path_), new_);
}

TEST_F(DurableSteps, FileIsPrivateUntilItHasItsName)
{
    const mode_t before = ::umask(022);
    WriteChunkFileDurably(path_, kSize, FillNew, [](const std::string& fresh) {
        struct stat status = {};
        ASSERT_EQ(::stat(fresh.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
    });
    ::umask(before);
    struct stat status = {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(DurableSteps, CheckSeesTheFinishedFile)
{
    std::string seen;
    WriteChunkFileDurably(path_, kUnbounded, FillNew, [&](const std::string& fresh) {
        seen = support::ReadFile(fresh);
        EXPECT_FALSE(std::filesystem::exists(path_));
    });
    EXPECT_EQ(seen, new_);
}

TEST_F(DurableSteps, ExceptionsOfTheCallbacksPassAndLeaveNothing)
{
    const auto refuse = [](const auto&) { throw std::logic_error("refused"); };
    EXPECT_THROW(WriteChunkFileDurably(path_, kSize, refuse), std::logic_error);
    EXPECT_THROW(WriteChunkFileDurably(path_, kSize, FillNew, refuse), std::logic_error);
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(DurableSteps, EveryFailedAllocationPassesAndLeavesTheOldFile)
{
    support::WriteFile(path_, "old");
    for (const std::uint64_t maxSize : {kUnbounded, kSize}) {
        bool unharmed = false;
        std::uint64_t nth = 0;
        for (; !unharmed; ++nth) {
            support::WriteFile(path_, "old");
            support::Allocations allocations;
            allocations.FailAt(nth);
            try {
                WriteChunkFileDurably(path_, maxSize, [](DataChunkFileAppender& file) {
                    std::ignore = file.Append(ChunkOfSize(1, 100));
                });
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(support::ReadFile(path_), "old");
            }
            unharmed = allocations.Failed() == 0;
        }
        EXPECT_GE(nth, 10U);
    }
}

TEST_F(DurableSteps, FillThatFlushesIsRefused)
{
    const auto flush = [](DataChunkFileAppender& file) {
        FillNew(file);
        file.Flush();
    };
    try {
        WriteChunkFileDurably(path_, kSize, flush);
        FAIL() << "the file holds its image twice";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "WriteChunkFileDurably: file " + path_ + ": write: fill has flushed the appender");
    }
    EXPECT_TRUE(folder_.Names().empty());
}

TEST_F(DurableSteps, GroupThatCannotBeKeptGetsTheRightsOfOthers)
{
    for (const auto& [before, after] :
         {std::pair<mode_t, mode_t>{0674, 0644}, {0775, 0755}, {0701, 0700}, {0644, 0644}}) {
        SystemCalls calls;
        calls.FailEach("fchown", EPERM);
        EXPECT_EQ(ModeAfterReplacing(before), after) << std::oct << before;
        EXPECT_EQ(calls.Fired(), 2U);
    }
}

TEST_F(DurableSteps, OwnerAndGroupAreKeptByOneCall)
{
    const SystemCalls calls;
    EXPECT_EQ(ModeAfterReplacing(0674), 0674U);
    ASSERT_EQ(calls.Calls("fchown").size(), 1U);
    EXPECT_EQ(calls.Calls("fchown")[0].size, ::getuid());
    EXPECT_EQ(calls.Calls("fchown")[0].offset, ::getgid());
}

TEST_F(DurableSteps, GroupIsKeptWithoutTheOwnerAndKeepsItsRights)
{
    SystemCalls calls;
    calls.Fail("fchown", EPERM);
    EXPECT_EQ(ModeAfterReplacing(0674), 0674U);
    const auto attempts = calls.Calls("fchown");
    ASSERT_EQ(attempts.size(), 2U);
    EXPECT_EQ(attempts[1].size, UINT32_MAX);  // the owner stays
    EXPECT_EQ(attempts[1].offset, attempts[0].offset);
}

TEST_F(DurableSteps, FileSystemNeedsNoAccessLists)
{
    for (const int error : {ENODATA, ENOTSUP}) {
        SystemCalls calls;
        calls.Fail("fremovexattr", error);
        EXPECT_EQ(ModeAfterReplacing(0640), 0640U);
        EXPECT_EQ(calls.Fired(), 1U);
    }
}

TEST_F(DurableSteps, NothingIsRemovedBeforeThereIsAFreshFile)
{
    SystemCalls calls;
    calls.Fail("openat", EACCES);
    EXPECT_THROW(WriteChunkFileDurably(path_, kSize, FillNew), std::runtime_error);
    EXPECT_TRUE(calls.Calls("unlinkat").empty());
}

// A call that fails, and how the exception names it.
struct FailedStep {
    std::string name;
    std::function<void(SystemCalls& calls)> fail;
    std::string text;
    std::uint64_t maxSize = kSize;
};

void PrintTo(const FailedStep& step, std::ostream* stream)
{
    *stream << step.name;
}

class FailedDurableStep : public DurableSteps, public testing::WithParamInterface<FailedStep> {
protected:
    FailedDurableStep() { support::WriteFile(path_, "old"); }

    void WriteFailing()
    {
        SystemCalls calls;
        GetParam().fail(calls);
        try {
            WriteChunkFileDurably(path_, GetParam().maxSize, FillNew);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "WriteChunkFileDurably: file " + path_ + ": " + GetParam().text);
        }
        EXPECT_EQ(calls.Fired(), 1U);
    }
};

class StepUpToTheRename : public FailedDurableStep {};
class StepAfterTheRename : public FailedDurableStep {};

TEST_P(StepUpToTheRename, IsNamedAndLeavesTheOldFile)
{
    WriteFailing();
    EXPECT_EQ(support::ReadFile(path_), "old");
}

TEST_P(StepAfterTheRename, IsNamedAndTheNewFileIsWhole)
{
    WriteFailing();
    EXPECT_EQ(support::ReadFile(path_), new_ + std::string(kSize - new_.size(), '\0'));
}

const auto kNameOf = [](const testing::TestParamInfo<FailedStep>& step) { return step.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Steps, StepUpToTheRename,
    testing::Values(
        FailedStep{"Folder", [](auto& calls) { calls.Fail("open", EACCES); }, "open the folder: Permission denied"},
        FailedStep{"Name", [](auto& calls) { calls.Fail("getrandom", ENOSYS); }, "create: Function not implemented"},
        FailedStep{"Creation", [](auto& calls) { calls.Fail("openat", EROFS); }, "create: Read-only file system"},
        FailedStep{"ModeOfTheFreshFile", [](auto& calls) { calls.Fail("fstat", EIO); }, "create: Input/output error"},
        FailedStep{"Privacy", [](auto& calls) { calls.Fail("fchmod", EIO); }, "create: Input/output error"},
        FailedStep{"Header", [](auto& calls) { calls.Fail("write", ENOSPC); }, "write: No space left on device",
                   kUnbounded},
        FailedStep{"WholeHeader", [](auto& calls) { calls.Shorten("write", 5); }, "write: short write: 5 of 16 bytes",
                   kUnbounded},
        FailedStep{"Writing", [](auto& calls) { calls.Fail("write", ENOSPC); }, "write: short write: 0 of 5000 bytes"},
        FailedStep{"WritingAll", [](auto& calls) { calls.Shorten("write", 4999); },
                   "write: short write: 4999 of 5000 bytes"},
        FailedStep{"Length", [](auto& calls) { calls.Fail("fstat", EIO, 1); }, "write: Input/output error"},
        FailedStep{"Shortening", [](auto& calls) { calls.Fail("ftruncate", EIO); }, "write: Input/output error",
                   kUnbounded},
        FailedStep{"Mode", [](auto& calls) { calls.Fail("fchmod", EIO, 1); }, "set the mode: Input/output error"},
        FailedStep{"AccessList", [](auto& calls) { calls.Fail("fremovexattr", EIO); },
                   "set the mode: Input/output error"},
        FailedStep{"Syncing", [](auto& calls) { calls.Fail("fsync", EIO); }, "sync: Input/output error"},
        FailedStep{"Renaming", [](auto& calls) { calls.Fail("renameat", EXDEV); },
                   "rename: Invalid cross-device link"}),
    kNameOf);

INSTANTIATE_TEST_SUITE_P(Steps, StepAfterTheRename,
                         testing::Values(FailedStep{"SyncingTheFolder",
                                                    [](auto& calls) { calls.Fail("fsync", EIO, 1); },
                                                    "sync the folder; the new file stands: Input/output error"}),
                         kNameOf);

}  // namespace
