#include "faults/ReaderScenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
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
    Try([this] {
        DataChunkFileReader reader(path_);
        constructed_ = true;
        ReadAll(reader);
    });
}

void ReaderScenario::ReadAll(DataChunkFileReader& reader)
{
    std::uint64_t position = Corvane::File::kHeaderSize;
    announced_ = std::min<std::uint64_t>(reader.GetNumberOfChunks(), kChunks);
    for (std::size_t i = 0; i < announced_; ++i) {
        DataChunk chunk;
        std::uint64_t result = 0;
        for (int attempt = 0; attempt < 2 && result == 0; ++attempt) {
            Try([&] { result = reader.GetChunk(chunk, position); });
        }
        if (result == 0) {
            break;
        }
        position += chunk.GetSizeOnFile();
        found_.push_back(std::move(chunk));
    }
}

bool ReaderScenario::Succeeded() const
{
    return constructed_ && found_.size() == kChunks && thrown.empty();
}

bool ReaderScenario::Recovered() const
{
    return !constructed_ || found_.size() == announced_;
}

// The constructor's exception and log entry follow from its open and its two reads.
void ReaderScenario::CheckConstruction(const Traces& traces) const
{
    if (!constructed_) {
        const std::string text = "DataChunkFileReader could not open file " + path_;
        const bool opened = !traces.calls.empty() && traces.calls[0].result != -1;
        ASSERT_EQ(thrown.size(), 1U);
        EXPECT_TRUE(traces.fault.allocation || thrown[0] == "std::runtime_error: " + text) << thrown[0];
        ExpectLines(traces, opened ? Lines() : Lines{"50 " + text}, traces.fault.allocation);
        return;
    }
    std::uint64_t position = 0;
    std::uint64_t words[2] = {};
    for (std::size_t i = 0; i < 2; ++i) {
        const auto size = static_cast<std::size_t>(std::max<std::int64_t>(traces.calls.at(1 + i).result, 0));
        std::memcpy(&words[i], file_.data() + position, size);
        position += size;
    }
    ExpectLines(traces,
                {"10 " + path_ + " opened, contains " + std::to_string(words[1]) + " chunks on version " +
                 std::to_string(words[0])},
                false);
    EXPECT_TRUE(traces.fault.allocation || thrown.empty()) << testing::PrintToString(thrown);
}

void ReaderScenario::Check(const Traces& traces) const
{
    CheckConstruction(traces);
    EXPECT_TRUE(support::ReadFile(path_) == file_);
    EXPECT_TRUE(constructed_ || found_.empty());
    for (std::size_t i = 0; i < found_.size(); ++i) {  // a chunk that is found is the right one
        EXPECT_TRUE(support::RecordOf(found_[i]) == support::RecordOf(chunks_[i])) << i;
    }
}

}  // namespace faults
