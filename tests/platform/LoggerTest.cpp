#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <limits>
#include <locale>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/GroupedNumbers.h"
#include "support/Texts.h"
#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace {

using support::Lines;
using tarn::cv::logging::LogEntry;
using tarn::cv::logging::Logger;
using tarn::cv::logging::LoggingManager;

// A logger name that no other test uses.
std::string NewName()
{
    static int number = 0;
    return "LoggerTest." + std::to_string(++number);
}

// While it lives, stderr is a socket that receives each write as one message.
class WritesToStderr {
public:
    WritesToStderr() : stderr_(::dup(STDERR_FILENO))
    {
        std::array<int, 2> ends = {};
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()) != 0) {
            throw std::runtime_error("no sockets");
        }
        ::dup2(ends[0], STDERR_FILENO);
        ::close(ends[0]);
        end_ = ends[1];
    }
    WritesToStderr(const WritesToStderr&) = delete;
    WritesToStderr& operator=(const WritesToStderr&) = delete;
    ~WritesToStderr()
    {
        ::dup2(stderr_, STDERR_FILENO);
        ::close(stderr_);
        ::close(end_);
    }

    // The text of each write since the last call.
    Lines Take() const
    {
        Lines writes;
        std::string bytes(1 << 20, '\0');
        ssize_t size = 0;
        while ((size = ::recv(end_, bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0) {
            writes.push_back(bytes.substr(0, static_cast<std::size_t>(size)));
        }
        return writes;
    }

private:
    int stderr_;
    int end_ = -1;
};

class Logging : public testing::Test {
protected:
    Logging() = default;
    ~Logging() override { LoggingManager::SetSink({}); }

    // Keeps each entry as "<level> <logger> <message> <file>:<line>".
    void KeepEntries()
    {
        LoggingManager::SetSink([this](const LogEntry& entry) {
            lines_.push_back(std::to_string(entry.level) + " " + entry.logger + " " + entry.message + " " + entry.file +
                             ":" + std::to_string(entry.line));
        });
    }

    Lines lines_;
};

TEST_F(Logging, LevelsAreHeldExactly)
{
    const std::string name = NewName();
    for (const std::int32_t level : {std::numeric_limits<std::int32_t>::min(), -1, 0, 9, 10, 11, 40, 41, 50, 51}) {
        LoggingManager::SetLevel(name, level);
        EXPECT_EQ(LoggingManager::GetLogger(name).GetCurrentLevel(), level);
    }
}

TEST_F(Logging, LoggerStartsWithLevel40)
{
    EXPECT_EQ(LoggingManager::GetLogger(NewName()).GetCurrentLevel(), 40);
}

TEST_F(Logging, NameAlwaysGivesTheSameLogger)
{
    const std::string name = NewName();
    Logger& logger = LoggingManager::GetLogger(name);
    EXPECT_EQ(logger.Name(), name);
    for (int i = 0; i < 1000; ++i) {
        LoggingManager::GetLogger(NewName());
    }
    EXPECT_EQ(&LoggingManager::GetLogger(name), &logger);
    EXPECT_EQ(LoggingManager::GetLoggerPtr(name), &logger);
    EXPECT_NE(&LoggingManager::GetLogger(NewName()), &logger);
}

TEST_F(Logging, LevelsOfDifferentLoggersAreIndependent)
{
    const std::string name = NewName();
    LoggingManager::SetLevel(name, 7);
    EXPECT_EQ(LoggingManager::GetLogger(name + "x").GetCurrentLevel(), 40);
    EXPECT_EQ(LoggingManager::GetLogger("").GetCurrentLevel(), 40);
}

TEST_F(Logging, SwitchedOffLoggerIsNullByPointerButNotByReference)
{
    const std::string name = NewName();
    Logger* const earlier = LoggingManager::GetLoggerPtr(name);
    LoggingManager::SetLevel(name, Logger::kOff);
    EXPECT_EQ(LoggingManager::GetLoggerPtr(name), nullptr);
    EXPECT_EQ(&LoggingManager::GetLogger(name), earlier);
    EXPECT_EQ(earlier->GetCurrentLevel(), Logger::kOff);
    LoggingManager::SetLevel(name, 10);
    EXPECT_EQ(LoggingManager::GetLoggerPtr(name), earlier);
}

TEST_F(Logging, EntryReachesTheSinkWhole)
{
    KeepEntries();
    LoggingManager::GetLogger("a").Log(50, "two\nlines", "some/file.cpp", 17);
    EXPECT_EQ(lines_, (Lines{"50 a two\nlines some/file.cpp:17"}));
}

TEST_F(Logging, SinkMayLogLookUpLoggersAndReplaceItself)
{
    LoggingManager::SetSink([this](const LogEntry& entry) {
        lines_.push_back(entry.message);
        KeepEntries();
        LoggingManager::SetLevel("b", 20);
        LoggingManager::GetLogger("b").Log(20, "from the sink", "f", 2);
    });
    LoggingManager::GetLogger("a").Log(50, "first", "f", 1);
    LoggingManager::GetLogger("a").Log(50, "second", "f", 3);
    EXPECT_EQ(lines_, (Lines{"first", "20 b from the sink f:2", "50 a second f:3"}));
}

TEST_F(Logging, ExceptionOfTheSinkReachesTheCallerAndHarmsNothing)
{
    LoggingManager::SetSink([](const LogEntry&) { throw std::runtime_error("sink"); });
    Logger& logger = LoggingManager::GetLogger(NewName());
    EXPECT_THROW(logger.Log(50, "lost", "f", 1), std::runtime_error);
    KeepEntries();
    logger.Log(50, "kept", "f", 2);
    EXPECT_EQ(lines_, (Lines{"50 " + logger.Name() + " kept f:2"}));
}

TEST_F(Logging, EmptySinkBringsTheDefaultBack)
{
    const WritesToStderr writes;
    KeepEntries();
    LoggingManager::SetSink({});
    LoggingManager::GetLogger("a").Log(50, "printed", "f", 1);
    EXPECT_EQ(writes.Take().size(), 1U);
    EXPECT_EQ(lines_, Lines{});
}

TEST_F(Logging, DefaultSinkPrintsOneLineWithTimeLevelLoggerTextAndPlace)
{
    const WritesToStderr writes;
    LoggingManager::GetLogger("a").Log(-7, "some text", "some/file.cpp", 1234567);
    const Lines lines = writes.Take();
    ASSERT_EQ(lines.size(), 1U);
    std::string pattern = lines[0];
    std::replace_if(
        pattern.begin(), pattern.begin() + 30, [](unsigned char byte) { return std::isdigit(byte) != 0; }, 'd');
    EXPECT_EQ(pattern, "dddd-dd-ddTdd:dd:dd.dddddddddZ -7 a some text some/file.cpp:1234567\n");
}

TEST_F(Logging, NoTextCanForgeALine)
{
    std::string every;
    for (int byte = 0; byte < 256; ++byte) {
        every += static_cast<char>(byte);
    }
    const WritesToStderr writes;
    LoggingManager::GetLogger("name\nforged").Log(50, every, "file\rforged", 1);
    const Lines lines = writes.Take();
    ASSERT_EQ(lines.size(), 1U);
    for (std::size_t i = 0; i + 1 < lines[0].size(); ++i) {
        const auto byte = static_cast<unsigned char>(lines[0][i]);
        EXPECT_TRUE(byte >= 0x20 && byte != 0x7f) << i;
    }
    EXPECT_EQ(lines[0].back(), '\n');
    EXPECT_NE(lines[0].find("name\\x0aforged"), std::string::npos);
    EXPECT_NE(lines[0].find("file\\x0dforged"), std::string::npos);
    EXPECT_NE(lines[0].find("\\x00\\x01"), std::string::npos);
    EXPECT_NE(lines[0].find("[\\x5c]"), std::string::npos);
    EXPECT_NE(lines[0].find("~\\x7f\x80\x81"), std::string::npos);
}

TEST_F(Logging, HighControlCharactersAreEscapedAndOtherUtf8IsNot)
{
    const WritesToStderr writes;
    LoggingManager::GetLogger("a").Log(50, "caf\xc3\xa9 \xc2\x9b[2J \xc2\x85 \xc2\xa0 \xc2", "f", 1);
    const Lines lines = writes.Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("caf\xc3\xa9 \\xc2\\x9b[2J \\xc2\\x85 \xc2\xa0 \xc2 f:1\n"), std::string::npos) << lines[0];
}

TEST_F(Logging, LongEntryIsOneWriteToo)
{
    const WritesToStderr writes;
    LoggingManager::GetLogger("a").Log(50, std::string(100'000, 'x'), "f", 1);
    EXPECT_EQ(writes.Take().size(), 1U);
}

TEST_F(Logging, LocaleOfTheProgramDoesNotChangeTheNumbers)
{
    const WritesToStderr writes;
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new support::GroupedNumbers));
    LoggingManager::GetLogger("a").Log(50, "text", "f", 1234);
    std::locale::global(before);
    const Lines lines = writes.Take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find(" 50 a text f:1234\n"), std::string::npos) << lines[0];
}

}  // namespace
