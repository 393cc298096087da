#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace tarn::cv::logging {

/// A named logger. Levels are numbers; a larger one is more important.
///
/// The library calls Log and GetCurrentLevel. A platform of your own must offer these as virtual operations, Log first.
/// The library logs an entry of level L only if GetCurrentLevel returns at most L, so Log need not check the level.
///
/// - **Owns**: Its name and its level.
/// - **Errors**: Log throws what the sink throws.
/// - **Threads**: Every operation may run in any thread at any time. A platform's must do so for all threads that call
///   the library.
class Logger {
public:
    /// The level of a logger that is switched off: no entry is this important.
    static constexpr std::int32_t kOff = INT32_MAX;

    explicit Logger(std::string name);
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger();

    /// Passes one log entry to the sink. `file`, which ends with a zero byte, and `line` name the statement that issues
    /// the entry.
    virtual void Log(std::int32_t level, const std::string& message, const char* file, std::int32_t line);

    /// The least level that the logger logs.
    virtual std::int32_t GetCurrentLevel();

    const std::string& Name() const noexcept { return name_; }
    void SetLevel(std::int32_t level) noexcept { level_ = level; }

private:
    const std::string name_;
    std::atomic<std::int32_t> level_;
};

}  // namespace tarn::cv::logging
