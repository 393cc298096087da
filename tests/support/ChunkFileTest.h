#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/Pellin/DataChunk.h"
#include "support/Files.h"

// The verbs of tests on chunk files, for any platform.
namespace support {

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;

constexpr std::uint64_t kUnbounded = 0;  // the maximum size of an image that grows

// The two values of the constructor's flag.
inline DataChunkFileAppender NewFile(const std::string& path, std::uint64_t maxSize)
{
    return DataChunkFileAppender(path, false, maxSize);
}

inline DataChunkFileAppender Reopened(const std::string& path, std::uint64_t maxSize)
{
    return DataChunkFileAppender(path, true, maxSize);
}

// The text of the std::runtime_error that the function throws, or "none".
inline std::string ErrorOf(const std::function<void()>& function)
{
    try {
        function();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

// A test with one file in a folder of its own.
class ChunkFileTest : public testing::Test {
protected:
    DataChunkFileAppender NewFile(std::uint64_t maxSize) const { return support::NewFile(path_, maxSize); }
    DataChunkFileAppender Reopened(std::uint64_t maxSize) const { return support::Reopened(path_, maxSize); }

    std::string ErrorOfNewFile(std::uint64_t maxSize) const
    {
        return ErrorOf([&] { NewFile(maxSize); });
    }
    std::string ErrorOfReopening(std::uint64_t maxSize) const
    {
        return ErrorOf([&] { Reopened(maxSize); });
    }

    // Opens the file, appends the chunks, expects them to be accepted, and closes it.
    void WriteNewFile(std::uint64_t maxSize, const std::vector<DataChunk>& chunks = {}) const
    {
        AppendAll(NewFile(maxSize), chunks);
    }
    void ContinueFile(std::uint64_t maxSize, const std::vector<DataChunk>& chunks = {}) const
    {
        AppendAll(Reopened(maxSize), chunks);
    }

    // The log entries and errors of reopening this file.
    std::string Discovered(std::uint64_t count) const
    {
        return "20 In file " + path_ + ": we discovered " + std::to_string(count) + " chunks from version 2";
    }
    std::string NotGood(std::uint64_t number, std::uint64_t count, std::uint64_t skipped) const
    {
        return "40 Chunk " + std::to_string(number) + " in file " + path_ + " of " + std::to_string(count) +
               " chunks is not good. We skip the remaining " + std::to_string(skipped) + " chunks";
    }
    std::string TooShort(std::uint64_t size) const
    {
        return "DataChunkFileAppender: file " + path_ + " has content of only " + std::to_string(size) +
               " bytes. 16is the minimum expected";
    }
    std::string TooLong(std::uint64_t size, std::uint64_t maxSize) const
    {
        return "DataChunkFileAppender: content size " + std::to_string(size) + " is greater than specified size " +
               std::to_string(maxSize) + " when reading file " + path_;
    }

    TemporaryFolder folder_;
    std::string path_ = folder_ / "a";

private:
    static void AppendAll(DataChunkFileAppender&& appender, const std::vector<DataChunk>& chunks)
    {
        for (const DataChunk& chunk : chunks) {
            EXPECT_TRUE(appender.Append(chunk));
        }
    }
};

}  // namespace support
