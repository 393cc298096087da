#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <system_error>

#include "Corvane/File/ExtendedAttributes.h"
#include "support/Files.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::File::ExtendedAttributes;
using support::Lines;
using support::Names;

// The file's attributes really change between the two system calls of an operation.
class Races : public testing::Test {
protected:
    void SetUp() override
    {
        support::WriteFile(path_, "");
        if (::setxattr(path_.c_str(), "user.a", "abc", 3, 0) != 0) {
            GTEST_SKIP() << "no extended attributes on this file system: " << std::generic_category().message(errno);
        }
    }

    void Set(const std::string& name, const std::string& value) const
    {
        ASSERT_EQ(::setxattr(path_.c_str(), name.c_str(), value.data(), value.size(), 0), 0);
    }

    void Unset(const std::string& name) const { ASSERT_EQ(::removexattr(path_.c_str(), name.c_str()), 0); }

    Names ListWhile(const std::function<void()>& change)
    {
        support::SystemCalls calls;
        calls.On("listxattr", 1, [&](const support::SystemCall&) {
            change();
            return std::nullopt;
        });
        Names names = ExtendedAttributes::List(path_, success_);
        EXPECT_EQ(calls.Fired(), 1U);
        return names;
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    support::ScriptedPlatform platform_;
    bool success_ = false;
};

// The value is read by path or, with the parameter true, by descriptor.
class ValueRaces : public Races, public testing::WithParamInterface<bool> {
protected:
    void TearDown() override { ::close(fd_); }

    std::string Read()
    {
        return GetParam() ? ExtendedAttributes::Read(fd_, "user.a", success_)
                          : ExtendedAttributes::Read(path_, "user.a", success_);
    }

    std::string ReadWhile(const std::function<void()>& change)
    {
        support::SystemCalls calls;
        calls.On(GetParam() ? "fgetxattr" : "getxattr", 1, [&](const support::SystemCall&) {
            change();
            return std::nullopt;
        });
        std::string value = Read();
        EXPECT_EQ(calls.Fired(), 1U);
        return value;
    }

    std::string Target() const { return GetParam() ? " on fd " + std::to_string(fd_) : " of " + path_; }

    int fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT, 0600);
};

TEST_P(ValueRaces, ValueThatShrinksKeepsItsLengthWithZeros)
{
    EXPECT_EQ(ReadWhile([this] { Set("user.a", "x"); }), std::string("x\0\0", 3));
    EXPECT_TRUE(success_);
}

TEST_P(ValueRaces, ValueThatBecomesEmptyKeepsItsLengthWithZeros)
{
    EXPECT_EQ(ReadWhile([this] { Set("user.a", ""); }), std::string(3, '\0'));
    EXPECT_TRUE(success_);
}

TEST_P(ValueRaces, ValueThatGrowsIsAFailure)
{
    EXPECT_EQ(ReadWhile([this] { Set("user.a", "abcd"); }).size(), 3U);
    EXPECT_FALSE(success_);
    EXPECT_EQ(platform_.logger.Lines(),
              Lines{"10 Cannot get value for xattr user.a" + Target() + ": Numerical result out of range"});
}

TEST_P(ValueRaces, EmptyValueThatIsFilledIsReadEmpty)
{
    Set("user.a", "");
    EXPECT_EQ(ReadWhile([this] { Set("user.a", "abcd"); }), "");
    EXPECT_TRUE(success_);
    EXPECT_EQ(platform_.logger.Lines(), Lines{});
}

TEST_P(ValueRaces, ValueThatVanishesIsAFailure)
{
    EXPECT_EQ(ReadWhile([this] { Unset("user.a"); }).size(), 3U);
    EXPECT_FALSE(success_);
    EXPECT_EQ(platform_.logger.Lines(),
              Lines{"10 Cannot get value for xattr user.a" + Target() + ": No data available"});
}

INSTANTIATE_TEST_SUITE_P(OfEachTarget, ValueRaces, testing::Bool(),
                         [](const auto& target) { return target.param ? "ByDescriptor" : "ByPath"; });

TEST_F(Races, ListThatShrinksHoldsWhatThereStillIs)
{
    Set("user.bb", "");
    EXPECT_EQ(ListWhile([this] { Unset("user.bb"); }), Names{"user.a"});
    EXPECT_TRUE(success_);
}

TEST_F(Races, ListThatVanishesIsEmpty)
{
    EXPECT_EQ(ListWhile([this] { Unset("user.a"); }), Names{});
    EXPECT_TRUE(success_);
}

TEST_F(Races, ListThatGrowsIsAFailure)
{
    EXPECT_EQ(ListWhile([this] { Set("user.b", ""); }), Names{});
    EXPECT_FALSE(success_);
    EXPECT_EQ(platform_.logger.Lines(),
              Lines{"10 Cannot get xattr list for " + path_ + ": Numerical result out of range"});
}

TEST_F(Races, EmptyListThatIsFilledIsEmpty)
{
    Unset("user.a");
    EXPECT_EQ(ListWhile([this] { Set("user.b", ""); }), Names{});
    EXPECT_TRUE(success_);
    EXPECT_EQ(platform_.logger.Lines(), Lines{});
}

TEST_F(Races, FileThatVanishesIsAFailure)
{
    EXPECT_EQ(ListWhile([this] { ASSERT_EQ(::unlink(path_.c_str()), 0); }), Names{});
    EXPECT_FALSE(success_);
    EXPECT_EQ(platform_.logger.Lines(), Lines{"10 Cannot get xattr list for " + path_ + ": No such file or directory"});
}

// Lists that no kernel should report: results and bytes as given.
class StrangeLists : public Races {
protected:
    Names List(std::int64_t size, const std::string& bytes, std::int64_t used)
    {
        support::SystemCalls calls;
        calls.On("listxattr", 0, [size](const support::SystemCall&) { return size; });
        calls.On("listxattr", 1, [&](const support::SystemCall& call) {
            EXPECT_EQ(call.size, static_cast<std::uint64_t>(size));
            std::memcpy(const_cast<void*>(call.buffer), bytes.data(), bytes.size());
            return used;
        });
        Names names = ExtendedAttributes::List(path_, success_);
        EXPECT_TRUE(success_);
        return names;
    }
};

TEST_F(StrangeLists, NameWithoutTerminatorInTheBufferIsDropped)
{
    EXPECT_EQ(List(9, std::string("user.a\0us", 9), 9), Names{"user.a"});
}

TEST_F(StrangeLists, UsedLengthPastTheBufferEndsWithIt)
{
    EXPECT_EQ(List(9, std::string("user.a\0us", 9), 1000), Names{"user.a"});
    EXPECT_EQ(List(7, std::string("user.a\0", 7), 1000), Names{"user.a"});
}

TEST_F(StrangeLists, LastNameEndsAtItsTerminatorEvenPastTheUsedLength)
{
    EXPECT_EQ(List(14, std::string("user.a\0user.b\0", 14), 10), (Names{"user.a", "user.b"}));
    EXPECT_EQ(List(14, std::string("user.a\0user.b\0", 14), 13), (Names{"user.a", "user.b"}));
}

TEST_F(StrangeLists, NameThatBeginsAtTheUsedLengthIsDropped)
{
    EXPECT_EQ(List(14, std::string("user.a\0user.b\0", 14), 7), Names{"user.a"});
}

}  // namespace
