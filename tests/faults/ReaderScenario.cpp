#include "faults/ReaderScenario.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "support/Chunks.h"

namespace faults {

using Corvane::File::DataChunkFileReader;
using Corvane::Pellin::DataChunk;

ReaderScenario::ReaderScenario() : path_(folder_ / "a")
{
    std::vector<DataChunk> chunks;
    for (std::size_t i = 0; i < kChunks; ++i) {
        chunks.push_back(support::ChunkOfSize(static_cast<std::int64_t>(i), 60 + i * i * 200));
        expected_.push_back({static_cast<std::int64_t>(i), chunks.back().GetSizeOnFile()});
    }
    file_ = support::FileOf(chunks);
    found_.reserve(kChunks);
}

void ReaderScenario::Prepare()
{
    support::WriteFile(path_, file_);
}

void ReaderScenario::Run()
{
    constructed_ = false;
    thrown_ = false;
    found_.clear();
    try {
        DataChunkFileReader reader(path_);
        constructed_ = true;
        std::uint64_t position = Corvane::File::kHeaderSize;
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(reader.GetNumberOfChunks(), kChunks); ++i) {
            DataChunk chunk;
            std::uint64_t result = 0;
            for (int attempt = 0; attempt < 2 && result == 0; ++attempt) {
                try {
                    result = reader.GetChunk(chunk, position);
                } catch (...) {
                    thrown_ = attempt == 1;
                }
            }
            if (result == 0) {
                break;
            }
            found_.push_back({chunk.GetTimePoint().Nanoseconds(), chunk.GetSizeOnFile()});
            position += chunk.GetSizeOnFile();
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): constructed_ tells
    }
}

bool ReaderScenario::Succeeded() const
{
    return constructed_ && found_.size() == kChunks;
}

bool ReaderScenario::Recovered() const
{
    return !thrown_;
}

void ReaderScenario::Check(const std::vector<support::SystemCall>& calls) const
{
    static_cast<void>(calls);
    EXPECT_TRUE(support::ReadFile(path_) == file_);
    EXPECT_TRUE(constructed_ || found_.empty());
    for (std::size_t i = 0; i < found_.size(); ++i) {  // what a reader gives is right
        EXPECT_EQ(found_[i].time, expected_[i].time);
        EXPECT_EQ(found_[i].size, expected_[i].size);
    }
}

}  // namespace faults
