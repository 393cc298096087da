#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <new>
#include <stdexcept>
#include <system_error>
#include <type_traits>

#include "Corvane/File/ExtendedAttributes.h"
#include "Corvane/File/XattrNames.h"
#include "support/Allocations.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::File::ExtendedAttributes;
using support::Lines;
using support::Names;

static_assert(!std::is_default_constructible_v<ExtendedAttributes>);

class Attributes : public testing::Test {
protected:
    void SetUp() override
    {
        support::WriteFile(path_, "");
        if (::setxattr(path_.c_str(), "user.probe", "", 0, 0) != 0) {
            GTEST_SKIP() << "no extended attributes on this file system: " << std::generic_category().message(errno);
        }
        ASSERT_EQ(::removexattr(path_.c_str(), "user.probe"), 0);
    }

    // Opens the file until the test's end.
    int Open(const std::string& path, int flags)
    {
        fd_ = ::open(path.c_str(), flags);
        EXPECT_NE(fd_, -1);
        return fd_;
    }

    void TearDown() override
    {
        if (fd_ != -1) {
            ::close(fd_);
        }
    }

    bool TryWrite(const std::string& path, const std::string& name, const std::string& value)
    {
        ExtendedAttributes::Write(path, name, value, success_);
        return success_;
    }

    std::string TryRead(const std::string& path, const std::string& name)
    {
        return ExtendedAttributes::Read(path, name, success_);
    }

    // Every operation fails on this path, and logs each failure twice.
    void ExpectAbsent(const std::string& none)
    {
        EXPECT_THROW(ExtendedAttributes::Read(none, "user.x"), std::runtime_error);
        EXPECT_THROW(ExtendedAttributes::List(none), std::runtime_error);
        EXPECT_THROW(ExtendedAttributes::Write(none, "user.x", "v"), std::runtime_error);
        EXPECT_THROW(ExtendedAttributes::Remove(none, "user.x"), std::runtime_error);
        const std::string reason = ": No such file or directory";
        EXPECT_EQ(log_.Lines(),
                  (Lines{"10 Cannot get size for xattr user.x of " + none + reason,
                         "40 Cannot get value of xattr user.x of " + none,
                         "10 Cannot get xattr list size for " + none + reason, "40 Cannot get xattr list for " + none,
                         "10 Cannot set user.x to v on " + none + reason, "40 Cannot set user.x to v on " + none,
                         "10 Cannot remove user.x on " + none + reason, "40 Cannot remove user.x on " + none}));
    }

    // The log entry of a refused write, with the reason that the bare system call gives.
    std::string Refusal(const std::string& name, const std::string& value) const
    {
        EXPECT_EQ(::setxattr(path_.c_str(), name.c_str(), value.data(), value.size(), 0), -1);
        const std::string reason = std::generic_category().message(errno);
        return "10 Cannot set " + name + " to " + value + " on " + path_ + ": " + reason;
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    support::LogCapture log_;
    bool success_ = false;
    int fd_ = -1;
};

TEST_F(Attributes, WhatIsWrittenIsReadBackByPathAndByDescriptor)
{
    const std::string value("a\0b\xff\x1b\n", 6);
    ExtendedAttributes::Write(path_, "user.x", value);
    const int fd = Open(path_, O_RDWR);
    EXPECT_EQ(ExtendedAttributes::Read(path_, "user.x"), value);
    EXPECT_EQ(ExtendedAttributes::Read(fd, "user.x"), value);
    ExtendedAttributes::Write(fd, "user.y", value);
    EXPECT_EQ(ExtendedAttributes::Read(path_, "user.y"), value);
    EXPECT_EQ(log_.Lines(), Lines{});
}

TEST_F(Attributes, EmptyValueIsAValue)
{
    ExtendedAttributes::Write(path_, "user.x", "");
    EXPECT_EQ(TryRead(path_, "user.x"), "");
    EXPECT_TRUE(success_);
    EXPECT_EQ(ExtendedAttributes::List(path_), Names{"user.x"});
}

TEST_F(Attributes, WritingAgainReplaces)
{
    ExtendedAttributes::Write(path_, "user.x", "first and longer");
    EXPECT_TRUE(TryWrite(path_, "user.x", "second"));
    EXPECT_EQ(ExtendedAttributes::Read(path_, "user.x"), "second");
}

TEST_F(Attributes, LargestValueIsReadBackAndOneByteMoreIsRefused)
{
    constexpr std::size_t kLongest = 65536;  // bytes; the kernel's limit for a value
    std::size_t least = 0;
    std::size_t most = kLongest + 1;
    while (least + 1 < most) {
        const std::size_t size = (least + most) / 2;
        (TryWrite(path_, "user.x", std::string(size, 'v')) ? least : most) = size;
    }
    log_.Clear();
    const std::string value(least, 'v');
    EXPECT_TRUE(TryWrite(path_, "user.x", value));
    EXPECT_EQ(ExtendedAttributes::Read(path_, "user.x"), value);
    EXPECT_FALSE(TryWrite(path_, "user.x", value + "v"));
    EXPECT_EQ(ExtendedAttributes::Read(path_, "user.x"), value);
    EXPECT_EQ(log_.Lines(), Lines{Refusal("user.x", value + "v")});
}

TEST_F(Attributes, NamesComeInByteOrderWithTheirPrefixes)
{
    for (const char* const name : {"user.b", "user.a", "user.B", "user.a.a"}) {
        ExtendedAttributes::Write(path_, name, "1");
    }
    const Names names = ExtendedAttributes::List(path_);
    EXPECT_EQ(Lines(names.begin(), names.end()), (Lines{"user.B", "user.a", "user.a.a", "user.b"}));
}

TEST_F(Attributes, EveryNamespaceIsListed)
{
    if (::setxattr(path_.c_str(), "trusted.t", "", 0, 0) != 0) {
        GTEST_SKIP() << "needs root and a file system with trusted attributes";
    }
    ExtendedAttributes::Write(path_, "user.u", "");
    EXPECT_EQ(ExtendedAttributes::List(path_), (Names{"trusted.t", "user.u"}));
}

TEST_F(Attributes, FileWithoutAttributesHasAnEmptyList)
{
    EXPECT_EQ(ExtendedAttributes::List(path_, success_), Names{});
    EXPECT_TRUE(success_);
    EXPECT_EQ(log_.Lines(), Lines{});
}

TEST_F(Attributes, RemovedAttributeIsGoneAndCannotBeRemovedAgain)
{
    ExtendedAttributes::Write(path_, "user.x", "1");
    ExtendedAttributes::Remove(path_, "user.x", success_);
    EXPECT_TRUE(success_);
    EXPECT_EQ(ExtendedAttributes::List(path_), Names{});
    ExtendedAttributes::Remove(path_, "user.x", success_);
    EXPECT_FALSE(success_);
    EXPECT_EQ(log_.Lines(), Lines{"10 Cannot remove user.x on " + path_ + ": No data available"});
}

TEST_F(Attributes, AbsentAttributeIsAFailure)
{
    EXPECT_EQ(TryRead(path_, "user.none"), "");
    EXPECT_FALSE(success_);
    EXPECT_EQ(log_.Lines(), Lines{"10 Cannot get size for xattr user.none of " + path_ + ": No data available"});
}

TEST_F(Attributes, ThrowingReadLogsTwiceAndThrowsWithoutAReason)
{
    support::LogCapture::SetLevel(10);
    const std::string text = "Cannot get value of xattr user.none of " + path_;
    try {
        ExtendedAttributes::Read(path_, "user.none");
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), text);
    }
    EXPECT_EQ(log_.Lines(),
              (Lines{"10 Cannot get size for xattr user.none of " + path_ + ": No data available", "40 " + text}));
}

TEST_F(Attributes, AbsentFileIsAFailureOfEveryOperation)
{
    const std::string none = folder_ / "none";
    ExpectAbsent(none);
}

TEST_F(Attributes, DanglingLinkIsAFailureOfEveryOperation)
{
    const std::string link = folder_ / "link";
    ASSERT_EQ(::symlink("nowhere", link.c_str()), 0);
    ExpectAbsent(link);
}

TEST_F(Attributes, DescriptorMinusOneIsPrintedWithItsSign)
{
    EXPECT_EQ(ExtendedAttributes::Read(-1, "user.x", success_), "");
    EXPECT_FALSE(success_);
    ExtendedAttributes::Write(-1, "user.x", "v", success_);
    EXPECT_FALSE(success_);
    EXPECT_EQ(log_.Lines(), (Lines{"10 Cannot get size for xattr user.x on fd -1: Bad file descriptor",
                                   "10 Cannot set user.x to v on -1: Bad file descriptor"}));
}

TEST_F(Attributes, ClosedDescriptorIsAFailure)
{
    const int fd = ::open(path_.c_str(), O_RDONLY);
    ::close(fd);
    EXPECT_THROW(ExtendedAttributes::Read(fd, "user.x"), std::runtime_error);
    EXPECT_THROW(ExtendedAttributes::Write(fd, "user.x", ""), std::runtime_error);
}

TEST_F(Attributes, ReadOnlyDescriptorSuffices)
{
    const int fd = Open(path_, O_RDONLY);
    ExtendedAttributes::Write(fd, "user.x", "v");
    EXPECT_EQ(ExtendedAttributes::Read(fd, "user.x"), "v");
}

TEST_F(Attributes, PathDescriptorDoesNotSuffice)
{
    const int fd = Open(path_, O_PATH);
    EXPECT_EQ(ExtendedAttributes::Read(fd, "user.x", success_), "");
    EXPECT_FALSE(success_);
    ExtendedAttributes::Write(fd, "user.x", "v", success_);
    EXPECT_FALSE(success_);
    const std::string target = std::to_string(fd) + ": Bad file descriptor";
    EXPECT_EQ(log_.Lines(),
              (Lines{"10 Cannot get size for xattr user.x on fd " + target, "10 Cannot set user.x to v on " + target}));
}

TEST_F(Attributes, UnlinkedFileKeepsItsAttributesForItsDescriptor)
{
    const int fd = Open(path_, O_RDWR);
    ASSERT_EQ(::unlink(path_.c_str()), 0);
    if (::fsetxattr(fd, "user.x", "", 0, 0) != 0) {
        GTEST_SKIP() << "none for unlinked files on this file system: " << std::generic_category().message(errno);
    }
    ExtendedAttributes::Write(fd, "user.x", "v");
    EXPECT_EQ(ExtendedAttributes::Read(fd, "user.x"), "v");
}

TEST_F(Attributes, LinksAreFollowed)
{
    const std::string link = folder_ / "link";
    ASSERT_EQ(::symlink(path_.c_str(), link.c_str()), 0);
    ExtendedAttributes::Write(link, "user.x", "v");
    EXPECT_EQ(ExtendedAttributes::Read(path_, "user.x"), "v");
    EXPECT_EQ(ExtendedAttributes::List(link), Names{"user.x"});
    ExtendedAttributes::Remove(link, "user.x");
    EXPECT_EQ(ExtendedAttributes::List(path_), Names{});
}

TEST_F(Attributes, FoldersHaveAttributesToo)
{
    ExtendedAttributes::Write(folder_.Path(), "user.x", "v");
    EXPECT_EQ(ExtendedAttributes::Read(folder_.Path(), "user.x"), "v");
}

TEST_F(Attributes, FifoRefusesUserAttributesWithoutBlocking)
{
    const std::string fifo = folder_ / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(TryWrite(fifo, "user.x", "v"));
    EXPECT_EQ(TryRead(fifo, "user.x"), "");
    EXPECT_FALSE(success_);
    EXPECT_EQ(ExtendedAttributes::List(fifo, success_), Names{});
    EXPECT_TRUE(success_);
}

TEST_F(Attributes, NamesTheSystemRefusesAreFailures)
{
    const std::string prefix = "user.";
    for (const std::string& name :
         {std::string("x"), std::string("nobody.x"), std::string(), prefix, prefix + std::string(251, 'n')}) {
        log_.Clear();
        EXPECT_FALSE(TryWrite(path_, name, "v")) << name;
        EXPECT_EQ(log_.Lines(), Lines{Refusal(name, "v")});
    }
}

TEST_F(Attributes, NameOf255BytesIsTheLongest)
{
    const std::string name = "user." + std::string(250, 'n');
    ExtendedAttributes::Write(path_, name, "v");
    EXPECT_EQ(ExtendedAttributes::List(path_), Names{name});
}

TEST_F(Attributes, NameEndsAtItsFirstZeroForTheKernelAndIsLoggedWhole)
{
    const std::string name("user.x\0tail", 11);
    ExtendedAttributes::Write(path_, name, "v");
    EXPECT_EQ(ExtendedAttributes::List(path_), Names{"user.x"});
    ExtendedAttributes::Remove(path_, name);
    ExtendedAttributes::Remove(path_, name, success_);
    EXPECT_EQ(log_.Lines(), Lines{"10 Cannot remove " + name + " on " + path_ + ": No data available"});
}

TEST_F(Attributes, WritingToAnotherUsersStickyFolderIsAFailure)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to make another user's folder";
    }
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 01777), 0);
    const int result = support::RunInChild([this] {
        support::BecomeUnprivileged();
        EXPECT_FALSE(TryWrite(folder_.Path(), "user.x", "v"));
        EXPECT_EQ(log_.Lines(), Lines{"10 Cannot set user.x to v on " + folder_.Path() + ": Operation not permitted"});
    });
    EXPECT_EQ(result, 0);
}

TEST_F(Attributes, SuccessCostsTheSystemCallsAndNothingElse)
{
    ExtendedAttributes::Write(path_, "user.x", std::string(500, 'v'));
    const int fd = Open(path_, O_RDWR);
    const std::string name = "user.x";
    const std::string value(500, 'w');
    const support::SystemCalls calls;
    const support::Allocations allocations;
    ExtendedAttributes::Write(path_, name, value, success_);
    ExtendedAttributes::Write(fd, name, value, success_);
    EXPECT_EQ(allocations.Count(), 0U);
    EXPECT_EQ(ExtendedAttributes::Read(fd, name, success_).size(), 500U);
    EXPECT_EQ(allocations.Count(), 1U);
    EXPECT_EQ(ExtendedAttributes::Read(path_, name, success_).size(), 500U);
    EXPECT_EQ(allocations.Count(), 2U);
    ExtendedAttributes::Remove(path_, name, success_);
    EXPECT_EQ(allocations.Count(), 2U);
    EXPECT_TRUE(success_);
    EXPECT_EQ(calls.Names(),
              (Lines{"setxattr", "fsetxattr", "fgetxattr", "fgetxattr", "getxattr", "getxattr", "removexattr"}));
}

TEST_F(Attributes, ThrowingVariantsCostNoMore)
{
    const int fd = Open(path_, O_RDWR);
    const std::string name = "user.x";
    const std::string value(500, 'w');
    const support::SystemCalls calls;
    const support::Allocations allocations;
    ExtendedAttributes::Write(path_, name, value);
    ExtendedAttributes::Write(fd, name, value);
    EXPECT_EQ(allocations.Count(), 0U);
    EXPECT_EQ(ExtendedAttributes::Read(fd, name).size(), 500U);
    EXPECT_EQ(ExtendedAttributes::Read(path_, name).size(), 500U);
    EXPECT_EQ(allocations.Count(), 2U);
    ExtendedAttributes::Remove(path_, name);
    EXPECT_EQ(allocations.Count(), 2U);
    EXPECT_EQ(calls.Names(),
              (Lines{"setxattr", "fsetxattr", "fgetxattr", "fgetxattr", "getxattr", "getxattr", "removexattr"}));
}

TEST_F(Attributes, ListTakesTwoCallsABufferAndANodeForEachName)
{
    ExtendedAttributes::Write(path_, "user.a", "");
    ExtendedAttributes::Write(path_, "user.b", "");
    const support::SystemCalls calls;
    const support::Allocations allocations;
    EXPECT_EQ(ExtendedAttributes::List(path_, success_).size(), 2U);
    EXPECT_EQ(allocations.Count(), 3U);
    EXPECT_EQ(calls.Names(), (Lines{"listxattr", "listxattr"}));
}

TEST_F(Attributes, FailedAllocationOfAReportedSizeIsThrownWithTheFlagTrue)
{
    ExtendedAttributes::Write(path_, "user.x", std::string(100, 'v'));
    support::Allocations allocations;
    for (const auto& query : {std::function<void()>([this] { TryRead(path_, "user.x"); }),
                              std::function<void()>([this] { ExtendedAttributes::List(path_, success_); })}) {
        success_ = false;
        allocations.FailAt(0);
        EXPECT_THROW(query(), std::bad_alloc);
        EXPECT_EQ(allocations.Failed(), 1U);
        EXPECT_TRUE(success_);
    }
}

TEST_F(Attributes, WriteReplacesOrCreatesWithoutFlags)
{
    const int fd = Open(path_, O_RDWR);
    const support::SystemCalls calls;
    ExtendedAttributes::Write(path_, "user.x", std::string("a\0b", 3));
    ExtendedAttributes::Write(fd, "user.x", std::string("\0bcd", 4));
    EXPECT_EQ(calls.Calls("setxattr").at(0).flags, 0);
    EXPECT_EQ(calls.Calls("setxattr").at(0).size, 3U);
    EXPECT_EQ(calls.Calls("fsetxattr").at(0).flags, 0);
    EXPECT_EQ(calls.Calls("fsetxattr").at(0).size, 4U);
    EXPECT_EQ(ExtendedAttributes::Read(path_, "user.x"), std::string("\0bcd", 4));
}

TEST_F(Attributes, SizeIsQueriedWithoutABufferAndContentWithOneOfThatSize)
{
    ExtendedAttributes::Write(path_, "user.x", std::string(100, 'v'));
    const int fd = Open(path_, O_RDONLY);
    const support::SystemCalls calls;
    TryRead(path_, "user.x");
    ExtendedAttributes::Read(fd, "user.x", success_);
    ExtendedAttributes::List(path_, success_);
    const auto made = calls.Calls();
    ASSERT_EQ(made.size(), 6U);
    for (std::size_t i = 0; i < made.size(); i += 2) {
        EXPECT_EQ(made[i].buffer, nullptr);
        EXPECT_EQ(made[i].size, 0U);
        EXPECT_NE(made[i + 1].buffer, nullptr);
        EXPECT_EQ(made[i + 1].size, static_cast<std::uint64_t>(made[i].result));
    }
}

TEST_F(Attributes, FlagBecomesTrueWhateverItWas)
{
    success_ = false;
    EXPECT_TRUE(TryWrite(path_, "user.x", ""));
    success_ = false;
    TryRead(path_, "user.x");
    EXPECT_TRUE(success_);
    success_ = false;
    ExtendedAttributes::List(path_, success_);
    EXPECT_TRUE(success_);
    success_ = false;
    ExtendedAttributes::Remove(path_, "user.x", success_);
    EXPECT_TRUE(success_);
}

TEST_F(Attributes, MoreThan64KiBOfNamesCannotBeListed)
{
    constexpr long kTmpfs = 0x01021994;
    struct statfs status = {};
    if (::statfs("/dev/shm", &status) != 0 || status.f_type != kTmpfs ||
        ::setxattr("/dev/shm", "user.probe", "", 0, 0) != 0) {
        GTEST_SKIP() << "needs a tmpfs with user attributes at /dev/shm";
    }
    ::removexattr("/dev/shm", "user.probe");
    const std::string path = "/dev/shm/chunkfiles-names-" + std::to_string(::getpid());
    support::WriteFile(path, "");
    for (int i = 0; i < 300; ++i) {
        std::string name = "user." + std::to_string(1000 + i);
        name.resize(255, 'n');
        EXPECT_TRUE(TryWrite(path, name, ""));
    }
    EXPECT_EQ(ExtendedAttributes::List(path, success_), Names{});
    ::unlink(path.c_str());
    EXPECT_FALSE(success_);
    EXPECT_EQ(log_.Lines(), Lines{"10 Cannot get xattr list for " + path + ": Argument list too long"});
}

TEST_F(Attributes, AllSharedNamesAreAccepted)
{
    using namespace Corvane::File;
    const Names names = {XattrFineTimecode,    XattrFineDuration,     XattrFineTrackId, XattrFineDataSize,
                         XattrFineChunkNumber, XattrFineEnableBlocks, XattrFinePrefix,  XattrEmptyFile,
                         XattrTrackSize,       XattrFileSize};
    EXPECT_EQ(names.size(), 10U);
    for (const std::string& name : names) {
        ExtendedAttributes::Write(path_, name, "1");
    }
    EXPECT_EQ(ExtendedAttributes::List(path_), names);
}

}  // namespace
