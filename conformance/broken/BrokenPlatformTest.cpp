#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

struct Breach {
    const char* fault;
    const char* test;
    const char* rule;
};

struct Outcome {
    int code;
    std::string output;
};

// Runs the kit's test on the platform that has this fault.
Outcome RunKit(const std::string& fault, const std::string& test)
{
    const std::string command =
        "CORVANE_FAULT=" + fault + " " BROKEN_CONFORMANCE " --gtest_filter=Conformance." + test + " 2>&1";
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
        Breach{"before", "NothingBeforeOrBehindTheRecordIsWritten", "nothing before or behind the record is written"},
        Breach{"behind", "NothingBeforeOrBehindTheRecordIsWritten", "nothing before or behind the record is written"},
        Breach{"memory", "WhatIsWrittenReadsBackFromMemory", "what is written reads back from memory"},
        Breach{"descriptor", "WhatIsWrittenReadsBackFromADescriptor", "what is written reads back from a descriptor"},
        Breach{"names", "WhatIsWrittenReadsBackFromADescriptorWithNames",
               "what is written reads back from a descriptor with names"},
        Breach{"zeros", "ZeroBytesAreRefusedOrHarmless", "zero bytes are refused or at least never crash"},
        Breach{"damage", "DamagedBytesAreRefusedOrHarmless", "every damaged byte is refused or at least never crashes"},
        Breach{"crash", "DamagedBytesAreRefusedOrHarmless", "every damaged byte is refused or at least never crashes"},
        Breach{"cut", "CutRecordsAreRefusedOrHarmless", "every cut record is refused or at least never crashes"},
        Breach{"order", "OrderIsAStrictWeakOrdering", "the order of time points is a strict weak ordering"},
        Breach{"exclusive", "LevelsAreInclusive", "a record comes out if the logger's level is at most its own"},
        Breach{"off", "NullLoggerIsSilent", "a logger that is switched off is null or silent"},
        Breach{"stale", "LoggerStaysValid", "a logger stays valid whatever is looked up later"},
        Breach{"threads", "ConcurrentLookUpsAreSafe",
               "loggers may be looked up and used from several threads at once"}),
    [](const auto& parameter) { return std::string(parameter.param.fault); });

}  // namespace
