#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "Corvane/File/ExtendedAttributes.h"
#include "support/Allocations.h"
#include "support/SourceLines.h"
#include "support/SystemCalls.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using Corvane::File::ExtendedAttributes;
using support::Lines;
using support::Thrown;
using tarn::cv::logging::LoggingManager;

constexpr const char* kPath = "/some/file";
constexpr const char* kName = "user.name";
constexpr std::string_view kPlainValue = "value";
constexpr std::string_view kBinaryValue("va\0l\x1bue", 7);

// One way for an operation to fail: the call that fails, both variants of the operation, and their texts.
struct Failure {
    std::string name;
    std::string call;
    std::uint64_t nth;
    std::function<void(bool&)> flagVariant;
    std::function<void()> throwingVariant;
    std::string text;        // of the flag variant, without the reason
    std::string thrownText;  // of the throwing variant
    std::string signature;   // of the flag variant, in the library's source
    std::string throwingSignature;
};

void PrintTo(const Failure& failure, std::ostream* stream)
{
    *stream << failure.name;
}

// Read and List set their flag at the start, Write and Remove at the end.
bool IsQuery(const Failure& failure)
{
    return failure.call.find("get") != std::string::npos || failure.call == "listxattr";
}

Failure ReadByDescriptor(std::uint64_t nth)
{
    return {nth == 0 ? "ReadByDescriptorSize" : "ReadByDescriptorValue",
            "fgetxattr",
            nth,
            [](bool& success) { ExtendedAttributes::Read(-1, kName, success); },
            [] { ExtendedAttributes::Read(-1, kName); },
            nth == 0 ? "Cannot get size for xattr user.name on fd -1" : "Cannot get value for xattr user.name on fd -1",
            "Cannot get value of xattr user.name on fd -1",
            "Read(int fd, const std::string& name, bool& success)",
            "Read(int fd, const std::string& name)"};
}

Failure ReadByPath(std::uint64_t nth)
{
    return {nth == 0 ? "ReadByPathSize" : "ReadByPathValue",
            "getxattr",
            nth,
            [](bool& success) { ExtendedAttributes::Read(kPath, kName, success); },
            [] { ExtendedAttributes::Read(kPath, kName); },
            nth == 0 ? "Cannot get size for xattr user.name of /some/file"
                     : "Cannot get value for xattr user.name of /some/file",
            "Cannot get value of xattr user.name of /some/file",
            "Read(const std::string& path, const std::string& name, bool& success)",
            "Read(const std::string& path, const std::string& name)"};
}

Failure List(std::uint64_t nth)
{
    return {nth == 0 ? "ListSize" : "ListNames",
            "listxattr",
            nth,
            [](bool& success) { ExtendedAttributes::List(kPath, success); },
            [] { ExtendedAttributes::List(kPath); },
            nth == 0 ? "Cannot get xattr list size for /some/file" : "Cannot get xattr list for /some/file",
            "Cannot get xattr list for /some/file",
            "List(const std::string& path, bool& success)",
            "List(const std::string& path)"};
}

Failure WriteByDescriptor(std::string_view plainOrBinary)
{
    const std::string value(plainOrBinary);
    const std::string text = "Cannot set user.name to " + value + " on -1";
    return {value == kPlainValue ? "WriteByDescriptor" : "WriteByDescriptorBinary",
            "fsetxattr",
            0,
            [value](bool& success) { ExtendedAttributes::Write(-1, kName, value, success); },
            [value] { ExtendedAttributes::Write(-1, kName, value); },
            text,
            text,
            "Write(int fd, const std::string& name, const std::string& value, bool& success)",
            "Write(int fd, const std::string& name, const std::string& value)"};
}

Failure WriteByPath(std::string_view plainOrBinary)
{
    const std::string value(plainOrBinary);
    const std::string text = "Cannot set user.name to " + value + " on /some/file";
    return {value == kPlainValue ? "WriteByPath" : "WriteByPathBinary",
            "setxattr",
            0,
            [value](bool& success) { ExtendedAttributes::Write(kPath, kName, value, success); },
            [value] { ExtendedAttributes::Write(kPath, kName, value); },
            text,
            text,
            "Write(const std::string& path, const std::string& name, const std::string& value,",
            "Write(const std::string& path, const std::string& name, const std::string& value)"};
}

Failure Remove()
{
    return {"Remove",
            "removexattr",
            0,
            [](bool& success) { ExtendedAttributes::Remove(kPath, kName, success); },
            [] { ExtendedAttributes::Remove(kPath, kName); },
            "Cannot remove user.name on /some/file",
            "Cannot remove user.name on /some/file",
            "Remove(const std::string& path, const std::string& name, bool& success)",
            "Remove(const std::string& path, const std::string& name)"};
}

// The text's first piece as the library's source has it: a literal that ends before the first argument.
std::string FirstPiece(const std::string& text)
{
    return '"' + text.substr(0, std::min(text.find(kName), text.find(kPath))) + '"';
}

class Failures : public testing::TestWithParam<Failure> {
protected:
    // The failing call gives this error and result. The size query before it, if there is one, succeeds.
    static void FailWith(support::SystemCalls& calls, int error, std::int64_t result = -1)
    {
        for (std::uint64_t nth = 0; nth < GetParam().nth; ++nth) {
            calls.On(GetParam().call, nth, [](const support::SystemCall&) { return 5; });
        }
        calls.On(GetParam().call, GetParam().nth, [error, result](const support::SystemCall&) {
            errno = error;
            return result;
        });
    }

    // Runs the flag variant and returns the flag.
    static bool RunFlagVariant(int error, bool flag = true)
    {
        support::SystemCalls calls;
        FailWith(calls, error);
        GetParam().flagVariant(flag);
        EXPECT_EQ(calls.Fired(), GetParam().nth + 1);
        EXPECT_EQ(calls.Calls().size(), GetParam().nth + 1);
        return flag;
    }

    // Runs the throwing variant and returns the exception's text; what() shows it up to its first zero byte.
    static std::string RunThrowingVariant(int error)
    {
        support::SystemCalls calls;
        FailWith(calls, error);
        try {
            GetParam().throwingVariant();
        } catch (const std::runtime_error& thrown) {
            return thrown.what();
        }
        return "none";
    }

    static std::string FlagLine(int error)
    {
        return "10 " + GetParam().text + ": " + std::generic_category().message(error);
    }

    // The registry and the logger do this at each use. A logged failure makes four uses: lookup, level, lookup, Log
    void AtEachUse(const std::function<void()>& action)
    {
        for (auto* const function : {&LoggingManager::onLookUp, &platform_.logger.onLevel, &platform_.logger.onLog}) {
            *function = action;
        }
    }

    void ThrowAtUse(int nth) { AtEachUse(support::ThrowAt(nth)); }

    support::ScriptedPlatform platform_;
};

TEST_P(Failures, FlagVariantReportsUpToLevel10)
{
    for (const std::int32_t level : {-5, 9, 10, 11, 40, 41, 50}) {
        platform_.logger.level = level;
        platform_.logger.entries.clear();
        LoggingManager::names.clear();
        EXPECT_FALSE(RunFlagVariant(ENODATA));
        EXPECT_EQ(platform_.logger.Lines(), level <= 10 ? Lines{FlagLine(ENODATA)} : Lines{}) << level;
        EXPECT_EQ(LoggingManager::names, Lines(level <= 10 ? 2 : 1, "ExtendedAttributes")) << level;
    }
}

TEST_P(Failures, ThrowingVariantReportsTwiceThenOnceThenNever)
{
    for (const std::int32_t level : {9, 10, 11, 40, 41, 50}) {
        platform_.logger.level = level;
        platform_.logger.entries.clear();
        LoggingManager::names.clear();
        EXPECT_STREQ(RunThrowingVariant(ENODATA).c_str(), GetParam().thrownText.c_str());
        Lines expected;
        if (level <= 10) {
            expected.push_back(FlagLine(ENODATA));
        }
        if (level <= 40) {
            expected.push_back("40 " + GetParam().thrownText);
        }
        EXPECT_EQ(platform_.logger.Lines(), expected) << level;
        EXPECT_EQ(LoggingManager::names, Lines(level <= 10 ? 4 : level <= 40 ? 3 : 2, "ExtendedAttributes")) << level;
    }
}

TEST_P(Failures, EveryErrorTakesTheSamePath)
{
    for (const int error : {EPERM, ENOENT, EBADF, E2BIG, EACCES, ENOTDIR, EINVAL, ENOSPC, EROFS, ERANGE, ENAMETOOLONG,
                            ELOOP, ENODATA, EOPNOTSUPP, EIO, EINTR, EDQUOT, 9999}) {
        platform_.logger.entries.clear();
        EXPECT_FALSE(RunFlagVariant(error));
        EXPECT_EQ(platform_.logger.Lines(), Lines{FlagLine(error)});
    }
}

TEST_P(Failures, FlagBecomesFalseWhateverItWas)
{
    for (const bool before : {true, false}) {
        EXPECT_FALSE(RunFlagVariant(EIO, before));
    }
}

TEST_P(Failures, ReasonSurvivesChangesOfErrno)
{
    AtEachUse([] { errno = EDOM; });
    const std::string expected = FlagLine(ENOSPC);
    support::SystemCalls calls;
    FailWith(calls, ENOSPC);
    bool success = true;
    support::Allocations allocations;
    allocations.DisturbErrno(ERANGE);
    GetParam().flagVariant(success);
    ASSERT_EQ(platform_.logger.entries.size(), 1U);
    EXPECT_EQ(platform_.logger.Lines()[0], expected);
}

TEST_P(Failures, ExceptionOfTheLoggerLeavesTheFlagUnchanged)
{
    for (int nth = 0; nth < 4; ++nth) {
        for (const bool before : {true, false}) {
            bool flag = before;
            support::SystemCalls calls;
            FailWith(calls, EIO);
            ThrowAtUse(nth);
            EXPECT_THROW(GetParam().flagVariant(flag), Thrown);
            EXPECT_EQ(flag, IsQuery(GetParam()) || before) << nth;
        }
    }
}

TEST_P(Failures, ExceptionOfTheLoggerPassesThroughTheThrowingVariant)
{
    for (int nth = 0; nth < 8; ++nth) {
        support::SystemCalls calls;
        FailWith(calls, EIO);
        ThrowAtUse(nth);
        EXPECT_THROW(GetParam().throwingVariant(), Thrown) << nth;
    }
}

TEST_P(Failures, FailedAllocationIsThrownAndLeavesTheFlag)
{
    std::uint64_t nth = 0;
    for (bool reported = false; !reported; ++nth) {
        bool flag = nth % 2 == 0;
        support::SystemCalls calls;
        FailWith(calls, EIO);
        support::Allocations allocations;
        allocations.FailAt(nth);
        try {
            GetParam().flagVariant(flag);
            reported = true;
            EXPECT_FALSE(flag);
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(flag, IsQuery(GetParam()) || nth % 2 == 0) << nth;
        }
    }
    EXPECT_GE(nth, 3U);
}

// Allocated before the level query: the reason, the logger's name, the registry's copy of it, and List's buffer. The
// text would need another allocation.
TEST_P(Failures, NoTextIsBuiltForAnEntryThatIsNotIssued)
{
    platform_.logger.level = 11;
    LoggingManager::names.reserve(1);
    std::uint64_t beforeLevel = 0;
    support::SystemCalls calls;
    FailWith(calls, EIO);
    bool success = true;
    const support::Allocations allocations;
    platform_.logger.onLevel = [&] { beforeLevel = allocations.Count(); };
    GetParam().flagVariant(success);
    EXPECT_EQ(beforeLevel, GetParam().name == "ListNames" ? 4U : 3U);
    EXPECT_EQ(allocations.Count(), beforeLevel);
}

TEST_P(Failures, SuccessLooksUpNoLogger)
{
    support::SystemCalls calls;
    calls.OnEach(GetParam().call, [](const support::SystemCall&) { return 0; });
    bool success = false;
    GetParam().flagVariant(success);
    EXPECT_TRUE(success);
    EXPECT_NO_THROW(GetParam().throwingVariant());
    EXPECT_EQ(calls.Calls().size(), IsQuery(GetParam()) ? 4U : 2U);
    EXPECT_EQ(LoggingManager::names, Lines{});
}

TEST_P(Failures, EntriesNameTheLinesOfTheirOwnStatements)
{
    EXPECT_STREQ(RunThrowingVariant(EIO).c_str(), GetParam().thrownText.c_str());
    const auto& entries = platform_.logger.entries;
    ASSERT_EQ(entries.size(), 2U);
    const Lines signatures = {GetParam().signature, GetParam().throwingSignature};
    const Lines texts = {GetParam().text, GetParam().thrownText};
    for (std::size_t i = 0; i < entries.size(); ++i) {
        support::ExpectStatement(entries[i].file, entries[i].line, "ExtendedAttributes.cpp",
                                 {"ExtendedAttributes::" + signatures[i], FirstPiece(texts[i])});
    }
}

// The registry may answer the second lookup with another logger, which then gets the entry.
TEST_P(Failures, EntriesGoToTheLoggerOfTheSecondLookup)
{
    tarn::cv::logging::Logger second;
    LoggingManager::onLookUp = [&] {
        const bool entry = LoggingManager::names.size() % 2 == 0;
        LoggingManager::logger = entry ? &second : &platform_.logger;
    };
    EXPECT_STREQ(RunThrowingVariant(EIO).c_str(), GetParam().thrownText.c_str());
    EXPECT_EQ(platform_.logger.Lines(), Lines{});
    EXPECT_EQ(second.Lines(), (Lines{FlagLine(EIO), "40 " + GetParam().thrownText}));
}

// Reads and lists treat every negative result as a failure; writes and removals only -1.
TEST_P(Failures, ResultBelowMinusOneIsAFailureOfQueriesOnly)
{
    support::SystemCalls calls;
    FailWith(calls, EIO, -2);
    bool success = IsQuery(GetParam());
    GetParam().flagVariant(success);
    EXPECT_EQ(success, !IsQuery(GetParam()));
    EXPECT_EQ(platform_.logger.Lines(), IsQuery(GetParam()) ? Lines{FlagLine(EIO)} : Lines{});
}

INSTANTIATE_TEST_SUITE_P(Each, Failures,
                         testing::Values(ReadByDescriptor(0), ReadByDescriptor(1), ReadByPath(0), ReadByPath(1),
                                         List(0), List(1), WriteByDescriptor(kPlainValue),
                                         WriteByDescriptor(kBinaryValue), WriteByPath(kPlainValue),
                                         WriteByPath(kBinaryValue), Remove()),
                         testing::PrintToStringParamName());

}  // namespace
