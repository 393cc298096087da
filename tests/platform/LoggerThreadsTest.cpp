#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace {

using tarn::cv::logging::LogEntry;
using tarn::cv::logging::Logger;
using tarn::cv::logging::LoggingManager;

constexpr int kThreads = 4;
constexpr int kRounds = 500;

// Runs the function in four threads at once, with the thread's number.
void InThreads(const std::function<void(int)>& function)
{
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(function, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(LoggerThreads, LookupsOfOneNameGiveOneLogger)
{
    std::array<std::array<Logger*, kRounds>, kThreads> found = {};
    InThreads([&](int thread) {
        for (int i = 0; i < kRounds; ++i) {
            found[static_cast<std::size_t>(thread)][static_cast<std::size_t>(i)] =
                &LoggingManager::GetLogger("LoggerThreads." + std::to_string(i));
        }
    });
    for (const auto& ofThread : found) {
        EXPECT_EQ(ofThread, found[0]);
    }
}

TEST(LoggerThreads, EveryEntryReachesExactlyOneSinkWhileSinksAreReplaced)
{
    std::atomic<int> entries = 0;
    const auto count = [&](const LogEntry& entry) {
        EXPECT_EQ(entry.message, "a text too long to be kept without an allocation");
        ++entries;
    };
    LoggingManager::SetSink(count);
    InThreads([&](int thread) {
        for (int i = 0; i < kRounds; ++i) {
            if (thread == 0) {
                LoggingManager::SetSink(count);
            } else {
                LoggingManager::GetLogger("a").Log(50, "a text too long to be kept without an allocation", "f", i);
            }
        }
    });
    LoggingManager::SetSink({});
    EXPECT_EQ(entries, (kThreads - 1) * kRounds);
}

TEST(LoggerThreads, LevelIsReadWhileItIsSet)
{
    LoggingManager::SetLevel("level", 10);
    InThreads([&](int thread) {
        for (int i = 0; i < kRounds; ++i) {
            if (thread == 0) {
                LoggingManager::SetLevel("level", i % 2 == 0 ? Logger::kOff : 10);
            } else {
                const std::int32_t level = LoggingManager::GetLogger("level").GetCurrentLevel();
                EXPECT_TRUE(level == 10 || level == Logger::kOff);
                const Logger* const logger = LoggingManager::GetLoggerPtr("level");
                EXPECT_TRUE(logger == nullptr || logger == &LoggingManager::GetLogger("level"));
            }
        }
    });
}

}  // namespace
