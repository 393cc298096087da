// What check says about a reopening is what a reopening does: for every damage and every state of docs/format.md.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "RandomDamages.h"
#include "chunkfile/Reopening.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/DamagedFiles.h"
#include "support/LogCapture.h"

namespace {

using Corvane::FileTool::Input;
using Corvane::FileTool::PredictReopening;
using Corvane::FileTool::Reopening;
using Corvane::FileTool::SurveyOf;
using support::ChunkOfSize;
using support::DataChunk;
using support::DataChunkFileAppender;
using support::FileOf;
using support::kUnbounded;
using support::ReadFile;
using support::Word;

constexpr std::int64_t kNewTime = 1'000'000;

class Prediction : public support::DamagedFileTest {
protected:
    Reopening Predicted(std::uint64_t maxSize) const
    {
        const Input input(path_);
        return PredictReopening(input, SurveyOf(input, {}), maxSize);
    }

    // What a reopening of the file does. A chunk of 40 bytes shows where the first append writes.
    Reopening Done(std::uint64_t maxSize)
    {
        Reopening done;
        log_.Clear();
        const DataChunk chunk = ChunkOfSize(kNewTime, 40);
        bool appended = false;
        done.refusal = support::ErrorOf([&] {
            DataChunkFileAppender appender(path_, true, maxSize);
            done.timePoints = appender.GetTimePoints().size();
            const support::Lines lines = log_.Lines();
            done.records = std::stoull(lines.back().substr(lines.size() == 1 ? lines[0].find("discovered ") + 11 : 9));
            appended = appender.Append(chunk);
        });
        if (done.refusal == "none") {
            done.refusal.clear();
        }
        if (appended) {
            done.position = ReadFile(path_).find(support::RecordOf(chunk));
        }
        return done;
    }

    void ExpectPredicted(const std::string& file, std::uint64_t maxSize)
    {
        Put(file);
        const Reopening predicted = Predicted(maxSize);
        ASSERT_TRUE(ReadFile(path_) == file) << "the tool has changed the file";
        const Reopening done = Done(maxSize);
        ASSERT_EQ(predicted.refusal, done.refusal);
        ASSERT_EQ(predicted.records, done.records);
        ASSERT_EQ(predicted.timePoints, done.timePoints);
        if (done.position != 0) {
            ASSERT_EQ(predicted.position, done.position);
        } else {
            ASSERT_TRUE(!done.refusal.empty() || predicted.position + 40 > maxSize)
                << "the chunk was refused for its size";
        }
        ++cases_;
    }

    void ExpectPredicted(const std::string& file)
    {
        for (const std::uint64_t maxSize : {kUnbounded, std::uint64_t{file.size()}, std::uint64_t{file.size() + 500},
                                            std::uint64_t{std::max<std::size_t>(file.size(), 17) - 1}}) {
            SCOPED_TRACE(testing::Message() << "maximum size " << maxSize);
            ExpectPredicted(file, maxSize);
        }
    }

    void ExpectEachPredicted(const support::Files& files)
    {
        for (std::size_t i = 0; i < files.size() && !HasFatalFailure(); ++i) {
            SCOPED_TRACE(testing::Message() << "case " << i);
            ExpectPredicted(files[i]);
        }
        EXPECT_EQ(cases_, 4 * files.size());
    }

    support::LogCapture log_{20};
    std::uint64_t cases_ = 0;
};

TEST_F(Prediction, HoldsForATruncationAtEveryByte)
{
    ExpectEachPredicted(support::Truncations(sound_));
}

TEST_F(Prediction, HoldsForEveryFlippedBit)
{
    ExpectEachPredicted(support::FlippedBits(sound_));
}

TEST_F(Prediction, HoldsForEveryByteSetToZeroOrAllOnes)
{
    ExpectEachPredicted(support::SetBytes(sound_));
}

TEST_F(Prediction, HoldsForEveryCount)
{
    ExpectEachPredicted(support::WrongCounts(sound_, 2 * chunks_.size()));
}

TEST_F(Prediction, HoldsForATearAtEveryByte)
{
    ExpectEachPredicted(
        support::TornOverwrites(FileOf({ChunkOfSize(100, 60), ChunkOfSize(101, 57), ChunkOfSize(102, 73),
                                        ChunkOfSize(103, 40), ChunkOfSize(104, 80), ChunkOfSize(105, 60)}),
                                sound_));
}

TEST_F(Prediction, HoldsForRandomDamages)
{
    ExpectEachPredicted(support::RandomDamages(sound_, FileOf({chunks_[2], chunks_[0]})));
}

// The missing bytes of a truncated record are zeros, and a larger maximum size brings them back.
TEST_F(Prediction, HoldsForARecordThatPaddingCompletes)
{
    DataChunk zeros(Corvane::Time::TimePoint(7));
    zeros.Set("p", std::string(50, '\0'));
    const std::string file = FileOf({chunks_[0], zeros, chunks_[1]}).substr(0, 16 + 60 + zeros.GetSizeOnFile() - 20);
    ExpectEachPredicted({file});
    Put(file);
    EXPECT_EQ(Predicted(kUnbounded).records, 1U);
    EXPECT_EQ(Predicted(file.size() + 19).records, 1U);
    EXPECT_EQ(Predicted(file.size() + 20).records, 2U);
}

TEST_F(Prediction, HoldsForEveryStateOfTheFormatPage)
{
    const std::string newer = FileOf({ChunkOfSize(4, 90), ChunkOfSize(5, 90), ChunkOfSize(6, 60)});
    const std::string twins = FileOf({ChunkOfSize(1, 100), ChunkOfSize(1, 60)});
    const std::string longer = newer + sound_.substr(newer.size());
    std::string highCount = newer + FileOf({ChunkOfSize(1, 40), ChunkOfSize(2, 40)}).substr(16);
    highCount.replace(8, 8, Word(5));
    ExpectEachPredicted({sound_, sound_ + std::string(100, 'x'), sound_ + std::string(100, '\0'), sound_ + sound_,
                         FileOf(chunks_, 0), FileOf(chunks_, 3), std::string(500, '\0'), Word(2) + Word(0),
                         Word(2) + Word(3) + std::string(200, 'x'), twins, longer, highCount, newer, ""});
}

// The files of vectors/ show each state of the page.
TEST_F(Prediction, HoldsForEveryVector)
{
    support::Files files;
    for (const auto& entry : std::filesystem::directory_iterator(VECTORS_FOLDER)) {
        if (entry.path().extension() == ".chunks") {
            files.push_back(ReadFile(entry.path()));
        }
    }
    ASSERT_FALSE(files.empty());
    ExpectEachPredicted(files);
}

TEST_F(Prediction, HoldsForAFileThatMayNotBeWritten)
{
    Put(sound_);
    ::chmod(folder_.Path().c_str(), 0755);
    ::chmod(path_.c_str(), 0444);
    EXPECT_EQ(support::RunInChild([&] {
                  support::BecomeUnprivileged();
                  EXPECT_EQ(Predicted(kUnbounded).refusal, ErrorOfReopening(kUnbounded));
                  EXPECT_NE(Predicted(kUnbounded).refusal, "");
              }),
              0);
}

// Not even O_NOATIME is granted for another user's file, though everybody may write it.
TEST_F(Prediction, HoldsForAnotherUsersFile)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to make another user's file";
    }
    Put(sound_);
    ::chmod(folder_.Path().c_str(), 0755);
    ::chmod(path_.c_str(), 0666);
    EXPECT_EQ(support::RunInChild([&] {
                  support::BecomeUnprivileged();
                  EXPECT_EQ(Predicted(kUnbounded).refusal, ErrorOfReopening(kUnbounded));
                  EXPECT_EQ(Predicted(kUnbounded).refusal,
                            "DataChunkFileAppender could not open file " + path_ + ": Operation not permitted");
              }),
              0);
}

}  // namespace
