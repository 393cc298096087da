#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

namespace tarn::cv::logging {

// The host has virtual functions of its own before and between those that the library calls. Each ends the process, so
// a call by mistake shows.
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
