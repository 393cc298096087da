#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "Corvane/File/DataChunkFileScanner.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/DamagedFiles.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileScanner;
using support::ChunkOfSize;
using support::DataChunk;
using support::FileOf;
using support::kUnbounded;
using support::Lines;
using support::ReadFile;
using support::WordAt;

constexpr std::int64_t kNewTime = 1000;

// The good records at the start of a damaged file, found without the library.
struct Prefix {
    std::uint64_t chunks;
    std::uint64_t end;  // position after the last good record
};

// Reopens one damaged file after another and checks everything that reopening promises.
class Damage : public support::DamagedFileTest {
protected:
    // The records of `sound_` that `file` starts with unchanged, at most as many as its header counts.
    Prefix GoodPrefix(const std::string& file) const
    {
        Prefix prefix = {0, 16};
        for (const DataChunk& chunk : chunks_) {
            const std::uint64_t size = chunk.GetSizeOnFile();
            if (prefix.chunks == WordAt(file, 8) || file.compare(prefix.end, size, sound_, prefix.end, size) != 0) {
                break;
            }
            ++prefix.chunks;
            prefix.end += size;
        }
        return prefix;
    }

    // The log entries of a reopening.
    Lines Expected(const std::string& file, const Prefix& prefix) const
    {
        const std::uint64_t count = WordAt(file, 8);
        Lines lines = {Discovered(count)};
        if (prefix.chunks != count) {
            lines.push_back(NotGood(prefix.chunks, count, count - 1 - prefix.chunks));
        }
        return lines;
    }

    void ExpectRecoveryOfEach(const support::Files& files)
    {
        for (const std::string& file : files) {
            ExpectRecovery(file);
        }
    }

    // A scanner ends where a reopening does. Its search goes on to the next record that the damage has spared.
    void ExpectScanned(const std::string& file)
    {
        const Prefix prefix = GoodPrefix(file);
        DataChunkFileScanner scanner(path_);
        ExpectWalk(scanner, file);
        std::uint64_t next = 16;
        for (const DataChunk& chunk : chunks_) {
            const std::uint64_t size = chunk.GetSizeOnFile();
            const bool isSpared =
                next >= prefix.end && file.size() > next && file.compare(next, size, sound_, next, size) == 0;
            if (isSpared) {
                ASSERT_TRUE(scanner.FindNext());
                ASSERT_EQ(scanner.GetPosition(), next);
                ASSERT_TRUE(scanner.Next());
            }
            next += size;
        }
        ASSERT_FALSE(scanner.FindNext());
        ASSERT_EQ(scanner.GetPosition(), std::max<std::uint64_t>(file.size(), 16));
        scanner.GoTo(16, WordAt(file, 8));
        ExpectWalk(scanner, file);  // now from memory
    }

    void ExpectWalk(DataChunkFileScanner& scanner, const std::string& file) const
    {
        const Prefix prefix = GoodPrefix(file);
        while (scanner.Next()) {
        }
        ASSERT_EQ(scanner.GetNumberRead(), prefix.chunks);
        ASSERT_EQ(scanner.GetPosition(), prefix.end);
        ASSERT_EQ(scanner.GetEnd() == DataChunkFileScanner::End::AllRead, prefix.chunks == WordAt(file, 8));
    }

    void ExpectRecovery(const std::string& file)
    {
        ++cases_;
        if (file.size() >= 16) {
            Put(file);
            ExpectScanned(file);
        }
        for (const std::uint64_t maxSize : {kUnbounded, std::uint64_t{file.size()}, std::uint64_t{file.size() + 500}}) {
            Put(file);
            if (file.size() < 16 || WordAt(file, 0) != 2) {
                EXPECT_THROW(Reopened(maxSize), std::runtime_error);
                EXPECT_EQ(ReadFile(path_), file);
            } else {
                ExpectBytesKept(file, maxSize);
                ExpectContinued(file, maxSize);
            }
        }
    }

    // Closed without an append, the file keeps its bytes and gets padding up to its maximum size.
    void ExpectBytesKept(const std::string& file, std::uint64_t maxSize)
    {
        log_.Clear();
        const Prefix prefix = GoodPrefix(file);
        {
            const auto appender = Reopened(maxSize);
            ASSERT_EQ(appender.GetTimePoints().size(), prefix.chunks);
        }
        ASSERT_EQ(log_.Lines(), Expected(file, prefix));
        std::string kept = file;
        kept.resize(std::max<std::size_t>(file.size(), maxSize));
        ASSERT_TRUE(ReadFile(path_) == kept) << "a byte has changed";
        Put(file);
    }

    // A new chunk directly follows the good prefix, and the reader finds both.
    void ExpectContinued(const std::string& file, std::uint64_t maxSize)
    {
        const Prefix prefix = GoodPrefix(file);
        const DataChunk chunk = ChunkOfSize(kNewTime, 40);
        bool appended = false;
        {
            auto appender = Reopened(maxSize);
            appended = appender.Append(chunk);
        }
        ASSERT_EQ(appended, maxSize == kUnbounded || prefix.end + 40 <= maxSize);
        if (appended) {
            ASSERT_EQ(ReadFile(path_).substr(prefix.end, 40), support::RecordOf(chunk));
            std::vector<std::int64_t> times(prefix.chunks);
            for (std::size_t i = 0; i < times.size(); ++i) {
                times[i] = static_cast<std::int64_t>(i);
            }
            times.push_back(kNewTime);
            ASSERT_EQ(support::TimesOf(support::ReadAll(path_)), times);
        }
    }

    support::LogCapture log_{20};
    int cases_ = 0;
};

TEST_F(Damage, TruncationAtEveryByteIsRecovered)
{
    ExpectRecoveryOfEach(support::Truncations(sound_));
    EXPECT_EQ(cases_, 339);
}

TEST_F(Damage, EveryFlippedBitIsRecovered)
{
    ExpectRecoveryOfEach(support::FlippedBits(sound_));
    EXPECT_EQ(cases_, 8 * 338);
}

TEST_F(Damage, EveryByteSetToZeroOrAllOnesIsRecovered)
{
    ExpectRecoveryOfEach(support::SetBytes(sound_));
    EXPECT_EQ(cases_, 2 * 338);
}

TEST_F(Damage, EveryCountIsRecovered)
{
    ExpectRecoveryOfEach(support::WrongCounts(sound_, 2 * chunks_.size()));
    EXPECT_EQ(cases_, 26);
}

// A torn write: only the first k bytes of a new file overwrote the old one.
class TornOverwrite : public Damage {
protected:
    static std::vector<std::int64_t> TimesKept(const std::string& file, const std::vector<DataChunk>& newer,
                                               const std::vector<DataChunk>& older)
    {
        std::vector<std::int64_t> times;
        std::size_t position = 16;
        while (times.size() < WordAt(file, 8)) {
            const DataChunk* found = nullptr;
            for (const auto* const chunks : {&newer, &older}) {
                for (const DataChunk& chunk : *chunks) {
                    const std::string record = support::RecordOf(chunk);
                    if (file.compare(position, record.size(), record) == 0) {
                        found = &chunk;
                    }
                }
            }
            if (found == nullptr) {
                break;
            }
            times.push_back(found->GetTimePoint().Nanoseconds());
            position += found->GetSizeOnFile();
        }
        return times;
    }

    void ExpectTornFileKept(std::string file, std::uint64_t maxSize, std::size_t count) const
    {
        ASSERT_EQ(Reopened(maxSize).GetTimePoints().size(), count);
        file.resize(std::max<std::size_t>(file.size(), maxSize));
        ASSERT_TRUE(support::ReadFile(path_) == file) << "a byte has changed";
    }

    void ExpectTornFileContinued(std::uint64_t maxSize, std::vector<std::int64_t> times) const
    {
        bool appended = false;
        {
            auto appender = Reopened(maxSize);
            appended = appender.Append(ChunkOfSize(kNewTime, 40));
        }
        if (appended) {
            times.push_back(kNewTime);
        }
        ASSERT_TRUE(appended || maxSize != kUnbounded);
        ASSERT_EQ(support::TimesOf(support::ReadAll(path_)), times);
    }
};

TEST_F(TornOverwrite, KeepsEveryRecordThatIsWhole)
{
    const std::vector<DataChunk> newer = {ChunkOfSize(100, 60), ChunkOfSize(101, 57), ChunkOfSize(102, 73),
                                          ChunkOfSize(103, 40), ChunkOfSize(104, 80), ChunkOfSize(105, 60)};
    const std::string now = FileOf(newer);
    const support::Files files = support::TornOverwrites(now, sound_);
    for (std::size_t k = 0; k < files.size(); ++k) {
        const std::string& file = files[k];
        const auto times = TimesKept(file, newer, chunks_);
        for (const std::uint64_t maxSize : {kUnbounded, std::uint64_t{file.size()}, std::uint64_t{file.size() + 500}}) {
            SCOPED_TRACE(testing::Message() << k << " bytes of the new file, bounded to " << maxSize);
            Put(file);
            ExpectTornFileKept(file, maxSize, times.size());
            ExpectTornFileContinued(maxSize, times);
        }
    }
}

}  // namespace
