#pragma once

#include <cstdint>
#include <string>

namespace tarn::cv::logging {

// A logger that only counts its entries.
class Logger {
public:
    Logger() = default;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger() = default;

    virtual void Log(std::int32_t /*level*/, const std::string& /*message*/, const char* /*file*/,
                     std::int32_t /*line*/)
    {
        ++entries;
    }
    virtual std::int32_t GetCurrentLevel() { return level; }

    std::int32_t level = 60;  // above all that the library logs
    std::uint64_t entries = 0;
};

}  // namespace tarn::cv::logging
