#include "faults/ScannerScenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
#include "support/Chunks.h"

namespace faults {

using Corvane::File::DataChunkFileScanner;
using Corvane::Pellin::DataChunk;

ScannerScenario::ScannerScenario() : path_(folder_ / "a")
{
    std::uint64_t position = Corvane::File::kHeaderSize;
    std::vector<std::uint64_t> sizes(17, 40);
    sizes.insert(sizes.end(), {60, 300, 5'000, 57, 100, 90, 40});
    for (const std::uint64_t size : sizes) {
        chunks_.push_back(support::ChunkOfSize(static_cast<std::int64_t>(chunks_.size()), size));
        positions_.push_back(position);
        position += size;
    }
    file_ = support::FileOf(chunks_);
    file_[positions_[kBad]] = 'x';
    found_.reserve(kChunks);
}

void ScannerScenario::Prepare()
{
    support::WriteFile(path_, file_);
}

void ScannerScenario::Run()
{
    constructed_ = false;
    areRight_ = true;
    found_.clear();
    Try([this] {
        DataChunkFileScanner scanner(path_);
        constructed_ = true;
        announced_ = scanner.GetNumberOfChunks();
        ReadAll(scanner);
    });
}

// Tries again what failed, a few times.
void ScannerScenario::ReadAll(DataChunkFileScanner& scanner)
{
    const std::size_t most = announced_ == 0 ? 0 : kChunks - 1;
    for (int failures = 0; found_.size() < most && failures < 4;) {
        bool isNext = false;
        if (scanner.GetPosition() == positions_[kBad] && found_.size() == kBad) {
            Try([&] { isNext = scanner.FindNext(); });
            failures += isNext ? 0 : 1;
            continue;
        }
        Try([&] { isNext = scanner.Next(); });
        if (isNext) {
            Note(scanner);
        } else if (scanner.GetPosition() != positions_[kBad]) {
            ++failures;
        }
    }
}

// Allocates nothing.
void ScannerScenario::Note(const DataChunkFileScanner& scanner)
{
    const auto found = std::find(positions_.begin(), positions_.end(), scanner.GetPosition());
    const auto index = static_cast<std::size_t>(std::distance(positions_.begin(), found));
    areRight_ = areRight_ && index != kBad && index < kChunks && found_.size() < kChunks &&
                scanner.GetChunk().Fields() == chunks_[index].Fields() && (found_.empty() || found_.back() < index);
    found_.push_back(index);
}

bool ScannerScenario::Succeeded() const
{
    return constructed_ && found_.size() == kChunks - 1 && thrown.empty();
}

bool ScannerScenario::Recovered() const
{
    return !constructed_ || announced_ == 0 || found_.size() == kChunks - 1;
}

void ScannerScenario::Check(const Traces& traces) const
{
    EXPECT_TRUE(areRight_);
    EXPECT_TRUE(constructed_ || (found_.empty() && thrown.size() == 1));
    EXPECT_TRUE(support::ReadFile(path_) == file_);
    EXPECT_EQ(traces.lines, Lines());
    const std::string text = "std::runtime_error: DataChunkFileScanner: file " + path_ + ": ";
    for (const std::string& error : thrown) {
        EXPECT_TRUE(traces.fault.allocation || error.rfind(text, 0) == 0) << error;
    }
}

}  // namespace faults
