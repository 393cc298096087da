#include <gtest/gtest.h>

#include <iostream>
#include <memory>

#include "faults/AppenderScenario.h"
#include "faults/Matrix.h"
#include "support/scripted/ScriptedPlatform.h"

namespace faults {

std::unique_ptr<DataChunk> MakeChunk(std::int64_t time, std::uint64_t size)
{
    return std::make_unique<DataChunk>(time, size);
}

Lines TakeLogLines()
{
    tarn::cv::logging::Logger& logger = *tarn::cv::logging::LoggingManager::logger;
    Lines lines = logger.Lines();
    logger.entries.clear();
    return lines;
}

namespace {

using Corvane::Time::TimePoint;
using tarn::cv::logging::LoggingManager;

class CollaboratorFaults : public testing::TestWithParam<AppenderSetup> {
protected:
    // The operation throws at its k-th use, for every k.
    void ThrowAtEveryUse(const std::string& who, std::function<void()>& operation)
    {
        bool thrown = false;
        const auto fail = [&](std::uint64_t nth, bool persistently) {
            thrown = false;
            operation = [&thrown, nth, persistently, uses = std::uint64_t{0}]() mutable {
                const std::uint64_t use = uses++;
                if (use == nth || (persistently && use > nth)) {
                    thrown = true;
                    throw CollaboratorFault();
                }
            };
        };
        const std::uint64_t before = matrix_.Cases();
        matrix_.FailCollaborator(who, fail, [&] {
            operation = nullptr;
            return thrown;
        });
        EXPECT_GE(matrix_.Cases(), before + 2) << who;
    }

    support::ScriptedPlatform platform_;
    AppenderScenario scenario_{GetParam()};
    Matrix matrix_{scenario_};
};

TEST_P(CollaboratorFaults, OfEveryOperationAreSurvived)
{
    ThrowAtEveryUse("GetTimePoint", DataChunk::onGetTimePoint);
    ThrowAtEveryUse("GetSizeOnFile", DataChunk::onGetSizeOnFile);
    ThrowAtEveryUse("Write", DataChunk::onWrite);
    ThrowAtEveryUse("TimePoint's copying", TimePoint::onCopy);
    ThrowAtEveryUse("operator<", TimePoint::onCompare);
    ThrowAtEveryUse("lookup of the logger", LoggingManager::onLookUp);
    ThrowAtEveryUse("Log", platform_.logger.onLog);
    ThrowAtEveryUse("GetCurrentLevel", platform_.logger.onLevel);
    ThrowAtEveryUse("TimePoint's printing", TimePoint::onPrint);
    if (!GetParam().stored.empty()) {
        ThrowAtEveryUse("ReadFrom", DataChunk::onReadFrom);
    }
    std::cout << matrix_.Cases() << " faults\n";
}

TEST_P(CollaboratorFaults, OfTheAllocatorAreSurvived)
{
    matrix_.FailAllocations();
    EXPECT_GE(matrix_.Cases(), 10U);
    std::cout << matrix_.Cases() << " faults\n";
}

// Collaborators see no difference between large images: one of each kind is enough.
std::vector<AppenderSetup> Setups()
{
    std::vector<AppenderSetup> setups;
    for (const AppenderSetup& setup : AppenderSetups()) {
        const bool mapped = setup.name.find("Mapped") != std::string::npos;
        if (!mapped || setup.name == "NewUnboundedMapped" || setup.name == "ReopenDamagedMapped") {
            setups.push_back(setup);
        }
    }
    return setups;
}

INSTANTIATE_TEST_SUITE_P(Scenario, CollaboratorFaults, testing::ValuesIn(Setups()),
                         [](const auto& parameter) { return parameter.param.name; });

}  // namespace

}  // namespace faults
