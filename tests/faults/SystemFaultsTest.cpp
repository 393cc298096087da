#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <iostream>
#include <memory>
#include <system_error>

#include "faults/AppenderScenario.h"
#include "faults/AttributeScenario.h"
#include "faults/Matrix.h"
#include "faults/ReaderScenario.h"
#include "faults/ScannerScenario.h"
#include "support/Allocations.h"
#include "support/Chunks.h"
#include "support/LogCapture.h"

namespace faults {

std::unique_ptr<DataChunk> MakeChunk(std::int64_t time, std::uint64_t size)
{
    return std::make_unique<DataChunk>(support::ChunkOfSize(time, size));
}

namespace {

support::LogCapture* capture = nullptr;  // of the running test

}  // namespace

Lines TakeLogLines()
{
    Lines lines = capture->Lines();
    capture->Clear();
    return lines;
}

namespace {

struct Named {
    std::string name;
    std::function<std::unique_ptr<Scenario>()> make;
};

void PrintTo(const Named& named, std::ostream* stream)
{
    *stream << named.name;
}

std::vector<Named> Scenarios()
{
    std::vector<Named> scenarios = {{"ReadAll", [] { return std::make_unique<ReaderScenario>(); }},
                                    {"ScanAll", [] { return std::make_unique<ScannerScenario>(); }}};
    for (const AppenderSetup& setup : AppenderSetups()) {
        scenarios.push_back({setup.name, [setup] { return std::make_unique<AppenderScenario>(setup); }});
    }
    for (const AttributeOperation& operation : AttributeOperations()) {
        scenarios.push_back(
            {"Attribute" + operation.name, [operation] { return std::make_unique<AttributeScenario>(operation); }});
    }
    return scenarios;
}

// Every scenario, with the delivered library and the reference platform.
class SystemFaults : public testing::TestWithParam<Named> {
protected:
    void SetUp() override
    {
        capture = &log_;
        if (GetParam().name.rfind("Attribute", 0) == 0 &&
            ::setxattr(folder_.Path().c_str(), "user.probe", "", 0, 0) != 0) {
            GTEST_SKIP() << "no extended attributes on this file system: " << std::generic_category().message(errno);
        }
        scenario_ = GetParam().make();
        matrix_ = std::make_unique<Matrix>(*scenario_);
    }

    void ExpectCases(std::uint64_t least) const
    {
        std::cout << matrix_->Cases() << " faults\n";
        EXPECT_GE(matrix_->Cases(), least);
        EXPECT_EQ(matrix_->Cases() == 0, least == 0);
    }

    static bool OnlyChangesAnAttribute()
    {
        const std::string& name = GetParam().name;
        return name.rfind("AttributeWrite", 0) == 0 || name.rfind("AttributeRemove", 0) == 0;
    }

    support::TemporaryFolder folder_;
    support::LogCapture log_;
    std::unique_ptr<Scenario> scenario_;
    std::unique_ptr<Matrix> matrix_;
};

TEST_P(SystemFaults, OfEverySystemCallAreSurvived)
{
    matrix_->FailSystemCalls();
    ExpectCases(32);  // one call, sixteen errors, once and persistently
}

TEST_P(SystemFaults, OfEveryAllocationAreSurvived)
{
    matrix_->FailAllocations();
    ExpectCases(OnlyChangesAnAttribute() ? 0 : 2);  // a change allocates nothing
}

TEST_P(SystemFaults, OfACallAndAnAllocationTogetherAreSurvived)
{
    matrix_->FailAllocationsAndCalls();
    ExpectCases(2);
}

TEST_P(SystemFaults, ThatShortenAResultAreSurvived)
{
    matrix_->ShortenSystemCalls();
    ExpectCases(OnlyChangesAnAttribute() ? 0 : 6);  // a change returns no size
}

// A destructor cannot throw, so std::bad_alloc from its log entry ends the process.
TEST(SystemFaultsInADestructor, OfTheWriteAndOfItsTextEndTheProcess)
{
    const support::TemporaryFolder folder;
    const support::LogCapture log;
    EXPECT_DEATH(
        {
            auto appender = std::make_unique<Corvane::File::DataChunkFileAppender>(folder / "a", false, 64);
            support::SystemCalls calls;
            calls.Fail("write", ENOSPC);
            support::Allocations allocations;
            allocations.FailAt(0);
            appender.reset();
        },
        "");
}

INSTANTIATE_TEST_SUITE_P(Scenario, SystemFaults, testing::ValuesIn(Scenarios()),
                         [](const auto& parameter) { return parameter.param.name; });

}  // namespace

}  // namespace faults
