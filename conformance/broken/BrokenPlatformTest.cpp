#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <ostream>
#include <stdexcept>
#include <string>

namespace {

struct Breach {
    const char* fault;
    const char* test;
    const char* rule;
};

void PrintTo(const Breach& breach, std::ostream* stream)
{
    *stream << breach.fault;
}

struct Outcome {
    int code;
    std::string output;
};

// Runs the kit's test on the platform that has this fault.
Outcome RunKit(const std::string& fault, const std::string& test)
{
    const std::string command =
        "CORVANE_FAULT=" + fault + " '" BROKEN_CONFORMANCE "' --gtest_filter=Conformance." + test + " 2>&1";
    std::FILE* const pipe = ::popen(command.c_str(), "r");  // NOLINT(cert-env33-c): the command is ours
    if (pipe == nullptr) {
        throw std::runtime_error("no pipe");
    }
    std::string output;
    std::array<char, 4096> bytes = {};
    for (std::size_t size = 0; (size = std::fread(bytes.data(), 1, bytes.size(), pipe)) != 0;) {
        output.append(bytes.data(), size);
    }
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

class BrokenPlatform : public testing::TestWithParam<Breach> {};

TEST(BrokenPlatform, WithoutAFaultItPasses)
{
    const Outcome outcome = RunKit("none", "*");
    EXPECT_EQ(outcome.code, 0) << outcome.output;
}

// Other rules compare time points too, and fail with a broken order.
TEST(BrokenPlatform, BrokenOrderIsNamedBeforeAllElse)
{
    const std::string output = RunKit("order", "*").output;
    const std::string message = "The platform breaks the rule: ";
    const std::size_t first = output.find(message);
    ASSERT_NE(first, std::string::npos) << output;
    EXPECT_EQ(output.compare(first, output.find('\n', first) - first,
                             message + "the order of time points is a strict weak ordering"),
              0)
        << output;
    EXPECT_NE(output.find(message, first + 1), std::string::npos) << "no other rule fails: the order proves nothing";
}

TEST_P(BrokenPlatform, FailsWithAMessageThatNamesTheRule)
{
    const Outcome outcome = RunKit(GetParam().fault, GetParam().test);
    EXPECT_EQ(outcome.code, 1);
    const std::string message = std::string("The platform breaks the rule: ") + GetParam().rule + "\n";
    EXPECT_NE(outcome.output.find(message), std::string::npos) << message << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(
    All, BrokenPlatform,
    testing::Values(
        Breach{"short", "RecordIsExactlyAsLongAsAnnounced", "a record is exactly as long as announced"},
        Breach{"before", "NothingBeforeOrAfterTheRecordIsWritten", "nothing before or after the record is written"},
        Breach{"after", "NothingBeforeOrAfterTheRecordIsWritten", "nothing before or after the record is written"},
        Breach{"reread", "RecordOfAChunkThatWasReadIsAsLongAsAnnounced",
               "after a ReadFrom, Write writes as many bytes as announced or throws"},
        Breach{"memory", "RecordReadsBackFromMemory", "a record reads back from memory"},
        Breach{"descriptor", "RecordReadsBackFromADescriptor", "a record reads back from a descriptor"},
        Breach{"names", "RecordReadsBackFromADescriptorWithNames", "a record reads back from a descriptor with names"},
        Breach{"agree", "MemoryAndDescriptorAgreeOnAWholeRecord",
               "memory and descriptor agree on every record that is whole"},
        Breach{"inside", "BytesInsideARecordAreRefusedOrHarmless",
               "bytes inside a record are refused, or memory and descriptor agree"},
        Breach{"zeros", "ZeroBytesAreRefusedOrHarmless", "zero bytes are refused, or at least never crash"},
        Breach{"damage", "DamagedBytesAreRefusedOrHarmless",
               "every damaged byte is refused, or at least never crashes"},
        Breach{"crash", "DamagedBytesAreRefusedOrHarmless", "every damaged byte is refused, or at least never crashes"},
        Breach{"truncated", "TruncatedRecordsAreRefusedOrHarmless",
               "every truncated record is refused, or at least never crashes"},
        Breach{"order", "OrderIsAStrictWeakOrdering", "the order of time points is a strict weak ordering"},
        Breach{"exclusive", "LevelsAreInclusive", "an entry is logged if the logger's level is at most its own"},
        Breach{"off", "LoggerThatIsSwitchedOffIsSilent", "a logger that is switched off is null or silent"},
        Breach{"stale", "LoggerStaysValid", "a logger stays valid, whatever is looked up later"},
        Breach{"threads", "LoggersServeSeveralThreadsAtOnce", "several threads may look up and use loggers at once"}),
    [](const auto& parameter) { return std::string(parameter.param.fault); });

}  // namespace
