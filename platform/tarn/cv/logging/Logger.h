#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace tarn::cv::logging {

// A named logger. Levels are numbers, held exactly; a larger one is a more important entry.
//
// What the library calls, and a platform of your own must offer: Log and GetCurrentLevel, as virtual operations, safe
// from any thread that calls the library. The library asks GetCurrentLevel first and logs an entry of level L only if
// the answer is at most L; Log need not check again.
class Logger {
public:
    // What GetCurrentLevel answers for a logger that is switched off: no entry is that important.
    static constexpr std::int32_t kOff = INT32_MAX;

    explicit Logger(std::string name);
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger();

    // Passes one entry to the sink. `file` (zero-terminated) and `line` name the statement that issues it.
    // Throws what the sink throws.
    virtual void Log(std::int32_t level, const std::string& message, const char* file, std::int32_t line);

    // The least level that is logged.
    virtual std::int32_t GetCurrentLevel();

    const std::string& Name() const noexcept { return name_; }
    void SetLevel(std::int32_t level) noexcept { level_ = level; }

private:
    const std::string name_;
    std::atomic<std::int32_t> level_;
};

}  // namespace tarn::cv::logging
