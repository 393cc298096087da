// chunkfile recover takes exactly the records that check counts as the file's, for every damage.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "RandomDamages.h"
#include "WritingTest.h"
#include "chunkfile/Walk.h"

namespace {

using Corvane::FileTool::Exit;
using Corvane::FileTool::FoundRecord;
using Corvane::FileTool::Input;
using Corvane::FileTool::OnEqualTime;
using Corvane::FileTool::Recover;
using Corvane::FileTool::Standing;
using Corvane::FileTool::Walk;
using support::ChunkOfSize;
using support::DataChunk;
using support::FileOf;
using support::ReadFile;
using support::RecordOf;

class Recovery : public support::WritingTest {
protected:
    Recovery()
    {
        options_.onEqualTime = OnEqualTime::Skip;
        for (const DataChunk& chunk : chunks_) {
            own_.insert(RecordOf(chunk));
        }
        support::WithoutSync(calls_);
    }

    // What is to come out of the file.
    struct Expectation {
        std::vector<DataChunk> chunks;  // of equal times the first
        std::vector<DataChunk> found;   // those after damage
        bool isWhole = true;            // neither damage nor different records of one time
    };

    Expectation Expected() const
    {
        Expectation expected;
        std::map<std::int64_t, std::set<std::string>> records;
        const auto visit = [&](const FoundRecord& record) {
            if (record.standing == Standing::Doubtful && !options_.doubtful) {
                return true;
            }
            auto& ofItsTime = records[record.chunk.GetTimePoint().Nanoseconds()];
            const bool isNew = ofItsTime.insert(RecordOf(record.chunk)).second;
            if (isNew && ofItsTime.size() == 1) {
                expected.chunks.push_back(record.chunk);
            }
            expected.isWhole = expected.isWhole && (!isNew || ofItsTime.size() == 1);
            if (record.standing == Standing::Found) {
                expected.found.push_back(record.chunk);
            }
            return true;
        };
        const Input input(path_);
        Walk walk(input, true);
        const bool isDamaged = !walk.Counted(visit).reason.empty() || input.Size() < 16;
        if (isDamaged || options_.doubtful) {
            walk.AfterEnd(visit);
        }
        expected.isWhole = expected.isWhole && !isDamaged;
        return expected;
    }

    void ExpectRecovered(const std::string& file)
    {
        calls_.Clear();
        std::filesystem::remove(out_);
        Put(file);
        const Exit code = Run(Recover);
        const std::string out = Out();
        ASSERT_TRUE(ReadFile(path_) == file) << "the source has changed";
        ASSERT_EQ(folder_.Names(), (out.empty() ? support::Names{"a"} : support::Names{"a", "out"}));
        const Expectation expected = Expected();
        ASSERT_EQ(code, expected.isWhole ? Exit::Fine : Exit::Found);
        ASSERT_TRUE(out == (expected.chunks.empty() && !expected.isWhole ? "" : FileOf(expected.chunks)));
        for (const DataChunk& chunk : expected.chunks) {
            ASSERT_NE(file.find(RecordOf(chunk)), std::string::npos) << "absent from the source";
        }
        for (const DataChunk& chunk : expected.found) {
            ASSERT_TRUE(mayBeForged_ || own_.contains(RecordOf(chunk))) << "stale";
        }
    }

    void ExpectEachRecovered(const support::Files& files)
    {
        for (std::size_t i = 0; i < files.size() && !HasFatalFailure(); ++i) {
            SCOPED_TRACE(testing::Message() << "case " << i);
            ExpectRecovered(files[i]);
        }
    }

    support::SystemCalls calls_;
    std::set<std::string> own_;  // records of the file
    bool mayBeForged_ = false;
};

TEST_F(Recovery, IsExactForATruncationAtEveryByte)
{
    ExpectEachRecovered(support::Truncations(sound_));
}

TEST_F(Recovery, IsExactForEveryFlippedBit)
{
    ExpectEachRecovered(support::FlippedBits(sound_));
}

TEST_F(Recovery, IsExactForEveryByteSetToZeroOrAllOnes)
{
    ExpectEachRecovered(support::SetBytes(sound_));
}

TEST_F(Recovery, IsExactForEveryCount)
{
    ExpectEachRecovered(support::WrongCounts(sound_, 2 * chunks_.size()));
}

// The old file's records are stale. Those that the new header counts without damage cannot be told.
TEST_F(Recovery, TakesNoStaleRecordAfterATearAtEveryByte)
{
    const std::vector<DataChunk> now = {ChunkOfSize(100, 60), ChunkOfSize(101, 57), ChunkOfSize(102, 73),
                                        ChunkOfSize(103, 40), ChunkOfSize(104, 80), ChunkOfSize(105, 60)};
    for (const DataChunk& chunk : now) {
        own_.insert(RecordOf(chunk));
    }
    for (const DataChunk& chunk : chunks_) {
        own_.erase(RecordOf(chunk));
    }
    ExpectEachRecovered(support::TornOverwrites(FileOf(now), sound_));
}

TEST_F(Recovery, IsExactForRandomDamages)
{
    mayBeForged_ = true;
    ExpectEachRecovered(support::RandomDamages(sound_, FileOf({chunks_[2], chunks_[0]})));
}

TEST_F(Recovery, TakesDoubtfulRecordsIfAsked)
{
    options_.doubtful = true;
    std::string file = sound_;
    file.replace(8, 8, support::Word(0));
    ExpectRecovered(file);
    EXPECT_TRUE(Out() == sound_);
    ExpectEachRecovered(support::Truncations(sound_));
    mayBeForged_ = true;
    ExpectEachRecovered(support::RandomDamages(sound_, FileOf({chunks_[2], chunks_[0]})));
}

}  // namespace
