// WriteChunkFileDurably where folder, target, limits and callbacks are against it: the name leads to the old file or to
// the new one, whole, and nothing else stays in the folder.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "Corvane/File/WriteChunkFileDurably.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::WriteChunkFileDurably;
using support::ChunkOfSize;
using support::Names;
using support::RunInChild;

constexpr std::uint64_t kSize = 600'000;  // bytes of a written file

// Appends five chunks, at times from `time` on.
auto Fill(std::int64_t time)
{
    return [time](DataChunkFileAppender& file) {
        for (std::int64_t i = 0; i < 5; ++i) {
            EXPECT_TRUE(file.Append(ChunkOfSize(time + i, 100'000)));
        }
    };
}

std::string BytesOf(std::int64_t time)
{
    std::vector<support::DataChunk> chunks;
    chunks.reserve(5);
    for (std::int64_t i = 0; i < 5; ++i) {
        chunks.push_back(ChunkOfSize(time + i, 100'000));
    }
    std::string bytes = support::FileOf(chunks);
    bytes.resize(kSize);
    return bytes;
}

mode_t ModeOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
}

class DurableHostile : public testing::Test {
protected:
    // Writes the file with chunks from this time on. Returns the text of the failure, or nothing.
    std::string Write(std::int64_t time) const { return Write(path_, Fill(time)); }
    static std::string Write(const std::string& path, const std::function<void(DataChunkFileAppender&)>& fill)
    {
        try {
            WriteChunkFileDurably(path, kSize, fill);
            return {};
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    std::string Failure(const std::string& reason) const
    {
        return "WriteChunkFileDurably: file " + path_ + ": " + reason;
    }

    void ExpectOld() const
    {
        EXPECT_TRUE(support::ReadFile(path_) == old_);
        EXPECT_EQ(folder_.Names(), Names{"a"});
    }

    void MakeOld() const { support::WriteFile(path_, old_); }

    // Mounts a file system in memory over the folder, for this process alone. Returns false if it may not.
    bool MountSmallDisk(const std::string& options) const
    {
        return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               ::mount("none", folder_.Path().c_str(), "tmpfs", 0, options.c_str()) == 0;
    }

    support::TemporaryFolder folder_;
    support::LogCapture log_{51};
    std::string path_ = folder_ / "a";
    std::string old_ = "old bytes";
};

class DurableAsRoot : public DurableHostile {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root: to mount, or to give a file away";
        }
    }
};

TEST_F(DurableAsRoot, FullDiskIsAFailureAndTheOldFileStays)
{
    const int result = RunInChild([this] {
        ASSERT_TRUE(MountSmallDisk("size=300k"));
        MakeOld();
        EXPECT_EQ(Write(1).find(Failure("write: short write: ")), 0U);
        ExpectOld();
    });
    EXPECT_EQ(result, 0);
}

TEST_F(DurableAsRoot, FolderWithoutInodesIsAFailure)
{
    const int result = RunInChild([this] {
        ASSERT_TRUE(MountSmallDisk("nr_inodes=2"));
        MakeOld();
        EXPECT_EQ(Write(1), Failure("create: No space left on device"));
        ExpectOld();
    });
    EXPECT_EQ(result, 0);
}

TEST_F(DurableHostile, FileSizeLimitIsAFailureAndTheOldFileStays)
{
    MakeOld();
    const int result = RunInChild([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {100'000, 100'000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(Write(1), Failure("write: short write: 100000 of 600000 bytes"));
        ExpectOld();
    });
    EXPECT_EQ(result, 0);
}

// The first image is as long as the second, which the limit refuses to the last byte.
TEST_F(DurableHostile, ChunksAfterAFlushAreNotLostInSilence)
{
    MakeOld();
    const int result = RunInChild([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {kSize, kSize};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const std::string failure = Write(path_, [](DataChunkFileAppender& file) {
            file.Flush();
            Fill(1)(file);
        });
        EXPECT_EQ(failure.find(Failure("write: ")), 0U);
    });
    EXPECT_EQ(result, 0);
    ExpectOld();
}

TEST_F(DurableHostile, DescriptorLimitIsAFailureAtEachStep)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "UndefinedBehaviorSanitizer needs descriptors of its own";
    }
    MakeOld();
    const int result = RunInChild([this] {
        const int next = ::dup(0);
        ::close(next);
        for (const int more : {0, 1, 2, 3}) {  // the folder, the file and the appender's descriptor
            rlimit limit = {static_cast<rlim_t>(next + more), 1'000};
            ::setrlimit(RLIMIT_NOFILE, &limit);
            const std::string failure = Write(1);
            limit.rlim_cur = 1'000;
            ::setrlimit(RLIMIT_NOFILE, &limit);
            EXPECT_EQ(failure.find("Too many open files") == std::string::npos, more == 3) << more << failure;
            EXPECT_TRUE(support::ReadFile(path_) == (more == 3 ? BytesOf(1) : old_)) << more;
            EXPECT_EQ(folder_.Names(), Names{"a"});
        }
    });
    EXPECT_EQ(result, 0);
}

TEST_F(DurableHostile, TargetThatIsNoRegularFileIsRefusedAndNotOpened)
{
    std::filesystem::create_directory(path_);
    EXPECT_EQ(Write(1), Failure("find: not a regular file"));
    std::filesystem::remove(path_);
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);  // opening it would block
    EXPECT_EQ(Write(1), Failure("find: not a regular file"));
    std::filesystem::rename(path_, folder_ / "fifo");
    std::filesystem::create_symlink("fifo", path_);
    EXPECT_EQ(Write(1), Failure("find: not a regular file"));
    EXPECT_EQ(folder_.Names(), (Names{"a", "fifo"}));
}

TEST_F(DurableHostile, DanglingLinkAndLoopOfLinksAreFailures)
{
    std::filesystem::create_symlink("nowhere", path_);
    EXPECT_EQ(Write(1), Failure("find: No such file or directory"));
    std::filesystem::remove(path_);
    std::filesystem::create_symlink("a", path_);
    EXPECT_EQ(Write(1), Failure("find: Too many levels of symbolic links"));
    EXPECT_EQ(folder_.Names(), Names{"a"});
}

TEST_F(DurableHostile, NameThatCannotBeAFilesIsAFailure)
{
    EXPECT_EQ(Write("", Fill(1)), "WriteChunkFileDurably: file : find: No such file or directory");
    MakeOld();
    EXPECT_EQ(Write(path_ + "/b", Fill(1)), "WriteChunkFileDurably: file " + path_ + "/b: find: Not a directory");
    ExpectOld();
}

TEST_F(DurableHostile, LinkToALinkStaysAndItsTargetIsReplacedInItsOwnFolder)
{
    std::filesystem::create_directory(folder_ / "other");
    support::WriteFile(folder_ / "other/c", old_);
    std::filesystem::create_symlink("other/c", folder_ / "b");
    std::filesystem::create_symlink("b", path_);
    EXPECT_EQ(Write(1), "");
    EXPECT_TRUE(std::filesystem::is_symlink(path_) && std::filesystem::is_symlink(folder_ / "b"));
    EXPECT_FALSE(std::filesystem::is_symlink(folder_ / "other/c"));
    EXPECT_TRUE(support::ReadFile(folder_ / "other/c") == BytesOf(1));
    EXPECT_EQ(folder_.Names(), (Names{"a", "b", "other"}));
}

TEST_F(DurableHostile, OtherHardLinkKeepsTheOldFile)
{
    MakeOld();
    std::filesystem::create_hard_link(path_, folder_ / "b");
    EXPECT_EQ(Write(1), "");
    EXPECT_EQ(support::ReadFile(folder_ / "b"), old_);
    EXPECT_TRUE(support::ReadFile(path_) == BytesOf(1));
}

TEST_F(DurableHostile, SetIdBitsGoAndTheOtherModeBitsStay)
{
    MakeOld();
    ASSERT_EQ(::chmod(path_.c_str(), 07751), 0);
    EXPECT_EQ(Write(1), "");
    EXPECT_EQ(ModeOf(path_), 0751U);
}

TEST_F(DurableHostile, NewFileGetsTheUmaskAndAReplacedOneDoesNot)
{
    const int result = RunInChild([this] {
        ::umask(077);
        EXPECT_EQ(Write(1), "");
        EXPECT_EQ(ModeOf(path_), 0600U);
        ASSERT_EQ(::chmod(path_.c_str(), 0644), 0);
        EXPECT_EQ(Write(2), "");
        EXPECT_EQ(ModeOf(path_), 0644U);
        EXPECT_EQ(::umask(0), 077U);
    });
    EXPECT_EQ(result, 0);
}

// Owner and user 65534 may read and write, the group and others nothing.
std::string AccessList()
{
    return {
        "\2\0\0\0"                    // version
        "\1\0\6\0\xff\xff\xff\xff"    // owner: read, write
        "\2\0\6\0\xfe\xff\0\0"        // user 65534: read, write
        "\4\0\0\0\xff\xff\xff\xff"    // group: nothing
        "\x10\0\6\0\xff\xff\xff\xff"  // mask
        "\x20\0\0\0\xff\xff\xff\xff",
        44};  // others: nothing
}

// Returns false if the file system keeps no access lists.
bool SetAccessList(const std::string& path, const std::string& kind)
{
    const std::string list = AccessList();
    return ::setxattr(path.c_str(), ("system.posix_acl_" + kind).c_str(), list.data(), list.size(), 0) == 0;
}

// The group's bits of a mode with an access list are the list's mask: what its entries may grant at most.
TEST_F(DurableHostile, GroupGetsNoRightThatTheOldAccessListDeniedIt)
{
    MakeOld();
    ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
    if (!SetAccessList(path_, "access")) {
        GTEST_SKIP() << "this file system keeps no access lists";
    }
    ASSERT_EQ(ModeOf(path_), 0660U);
    EXPECT_EQ(Write(1), "");
    EXPECT_EQ(ModeOf(path_), 0600U);
}

TEST_F(DurableHostile, FoldersDefaultAccessListGivesNobodyRightsToAReplacedFile)
{
    MakeOld();
    ASSERT_EQ(::chmod(path_.c_str(), 0660), 0);
    if (!SetAccessList(folder_.Path(), "default")) {
        GTEST_SKIP() << "this file system keeps no access lists";
    }
    EXPECT_EQ(Write(1), "");
    EXPECT_EQ(ModeOf(path_), 0660U);
    EXPECT_EQ(::getxattr(path_.c_str(), "system.posix_acl_access", nullptr, 0), -1);
    EXPECT_EQ(errno, ENODATA);
}

TEST_F(DurableAsRoot, FolderThatMayNotBeWrittenIsAFailure)
{
    MakeOld();
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0755), 0);
    const int result = RunInChild([this] {
        support::BecomeUnprivileged();
        EXPECT_EQ(Write(1), Failure("create: Permission denied"));
    });
    EXPECT_EQ(result, 0);
    ExpectOld();
}

TEST_F(DurableAsRoot, AnotherUsersFileInAStickyFolderIsAFailure)
{
    MakeOld();
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 01777), 0);
    const int result = RunInChild([this] {
        support::BecomeUnprivileged();
        EXPECT_EQ(Write(1), Failure("rename: Operation not permitted"));
    });
    EXPECT_EQ(result, 0);
    ExpectOld();
}

TEST_F(DurableAsRoot, OwnerIsKeptByRoot)
{
    MakeOld();
    ASSERT_EQ(::chown(path_.c_str(), 1234, 5678), 0);
    EXPECT_EQ(Write(1), "");
    struct stat status = {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 5678U);
}

// Members of the old group now count as others.
TEST_F(DurableAsRoot, NobodyGetsMoreRightsWhenTheGroupCannotBeKept)
{
    for (const auto& [before, after] : {std::pair<mode_t, mode_t>{0664, 0644}, {0660, 0600}, {0604, 0600}}) {
        MakeOld();
        ASSERT_EQ(::chmod(path_.c_str(), before), 0);
        ASSERT_EQ(::chmod(folder_.Path().c_str(), 0777), 0);
        const int result = RunInChild([this] {
            support::BecomeUnprivileged();
            EXPECT_EQ(Write(1), "");
        });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(ModeOf(path_), after) << std::oct << before;
        std::filesystem::remove(path_);
    }
}

TEST_F(DurableAsRoot, MountedTargetIsAFailure)
{
    MakeOld();
    const int result = RunInChild([this] {
        support::WriteFile(folder_ / "b", "mounted");
        ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
        ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        ASSERT_EQ(::mount((folder_ / "b").c_str(), path_.c_str(), nullptr, MS_BIND, nullptr), 0);
        EXPECT_EQ(Write(1), Failure("rename: Device or resource busy"));
        EXPECT_EQ(support::ReadFile(path_), "mounted");
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(folder_.Names(), (Names{"a", "b"}));
}

TEST_F(DurableHostile, CheckThatRemovesTheFreshFileIsAFailure)
{
    MakeOld();
    const auto remove = [](const std::string& name) { std::filesystem::remove(name); };
    EXPECT_THROW(WriteChunkFileDurably(path_, kSize, Fill(1), remove), std::runtime_error);
    ExpectOld();
}

TEST_F(DurableHostile, CallbackThatLeavesTheCurrentFolderIsNoMatter)
{
    const int result = RunInChild([this] {
        std::filesystem::current_path(folder_.Path());
        const std::string failure = Write("a", [](DataChunkFileAppender& file) {
            std::filesystem::current_path("/");
            Fill(1)(file);
        });
        EXPECT_EQ(failure, "");
    });
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(support::ReadFile(path_) == BytesOf(1));
    EXPECT_EQ(folder_.Names(), Names{"a"});
}

TEST_F(DurableHostile, ExistingFileInAFolderWhosePathIsTooLongIsReplaced)
{
    const int result = RunInChild([this] {
        std::filesystem::current_path(folder_.Path());
        const std::string name(200, 'd');
        for (int i = 0; i < 25; ++i) {  // 5,000 bytes, where a path has 4,095 at most
            ASSERT_EQ(::mkdir(name.c_str(), 0700), 0);
            ASSERT_EQ(::chdir(name.c_str()), 0);
        }
        support::WriteFile("a", old_);
        EXPECT_EQ(Write("a", Fill(1)), "");
        EXPECT_TRUE(support::ReadFile("a") == BytesOf(1));
    });
    EXPECT_EQ(result, 0);
}

TEST_F(DurableHostile, SignalsDoNotInterruptIt)
{
    const int result = RunInChild([this] {
        struct sigaction action = {};  // without SA_RESTART
        action.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{0, 200}, {0, 200}};
        ::setitimer(ITIMER_REAL, &often, nullptr);
        for (std::int64_t i = 0; i < 50; ++i) {
            EXPECT_EQ(Write(i * 10), "");
        }
        const itimerval never = {};
        ::setitimer(ITIMER_REAL, &never, nullptr);
    });
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(support::ReadFile(path_) == BytesOf(490));
    EXPECT_EQ(folder_.Names(), Names{"a"});
}

TEST_F(DurableHostile, OfWritersAtOnceOneWholeFileWinsAndAReaderAlwaysFindsOne)
{
    constexpr std::int64_t kWriters = 4;
    MakeOld();
    std::vector<std::thread> writers;
    for (std::int64_t writer = 1; writer <= kWriters; ++writer) {
        writers.emplace_back([this, writer] {
            for (int i = 0; i < 10; ++i) {
                EXPECT_EQ(Write(writer), "");
            }
        });
    }
    std::set<std::string> whole{old_};
    for (std::int64_t writer = 1; writer <= kWriters; ++writer) {
        whole.insert(BytesOf(writer));
    }
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(whole.count(support::ReadFile(path_)), 1U);
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(whole.count(support::ReadFile(path_)), 1U);
    EXPECT_NE(support::ReadFile(path_), old_);
    EXPECT_EQ(folder_.Names(), Names{"a"});
}

}  // namespace
