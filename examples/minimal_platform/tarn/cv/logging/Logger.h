#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

namespace tarn::cv::logging {

// A logger with virtual operations of its host's between those that the library calls: each of them ends the process.
class Logger {
public:
    Logger() = default;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    virtual void Rotate() { std::abort(); }
    virtual void Close() { std::abort(); }
    virtual void Log(std::int32_t level, const std::string& message, const char* file, std::int32_t line);
    virtual void SetFormat(const std::string& /*format*/) { std::abort(); }
    virtual std::int32_t GetCurrentLevel();

protected:
    ~Logger() = default;  // loggers are never destroyed
};

}  // namespace tarn::cv::logging
