#include "faults/ReaderScenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "support/Chunks.h"

namespace faults {

using Corvane::File::DataChunkFileReader;
using Corvane::Pellin::DataChunk;

ReaderScenario::ReaderScenario() : path_(folder_ / "a")
{
    for (std::size_t i = 0; i < kChunks; ++i) {
        chunks_.push_back(support::ChunkOfSize(static_cast<std::int64_t>(i), 60 + i * i * 200));
    }
    file_ = support::FileOf(chunks_);
    found_.reserve(kChunks);
}

void ReaderScenario::Prepare()
{
    support::WriteFile(path_, file_);
}

void ReaderScenario::Run()
{
    constructed_ = false;
    found_.clear();
    try {
        DataChunkFileReader reader(path_);
        constructed_ = true;
        std::uint64_t position = Corvane::File::kHeaderSize;
        announced_ = std::min<std::uint64_t>(reader.GetNumberOfChunks(), kChunks);
        for (std::size_t i = 0; i < announced_; ++i) {
            DataChunk chunk;
            std::uint64_t result = 0;
            for (int attempt = 0; attempt < 2 && result == 0; ++attempt) {
                try {
                    result = reader.GetChunk(chunk, position);
                } catch (...) {  // NOLINT(bugprone-empty-catch): the result tells
                }
            }
            if (result == 0) {
                break;
            }
            position += chunk.GetSizeOnFile();
            found_.push_back(std::move(chunk));
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
    return !constructed_ || found_.size() == announced_;
}

void ReaderScenario::Check(const std::vector<support::SystemCall>& calls) const
{
    static_cast<void>(calls);
    EXPECT_TRUE(support::ReadFile(path_) == file_);
    EXPECT_TRUE(constructed_ || found_.empty());
    for (std::size_t i = 0; i < found_.size(); ++i) {  // what a reader gives is right
        EXPECT_TRUE(support::RecordOf(found_[i]) == support::RecordOf(chunks_[i])) << i;
    }
}

}  // namespace faults
