// What check finds in a file: each code, and which records after damage count as the file's.
#include "chunkfile/Findings.h"
#include "chunkfile/Terminal.h"
#include "chunkfile/ViewFacts.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::FileTool::ByteKind;
using Corvane::FileTool::Finding;
using Corvane::FileTool::FindingsOf;
using Corvane::FileTool::FoundRecord;
using Corvane::FileTool::Input;
using Corvane::FileTool::Standing;
using Corvane::FileTool::Survey;
using Corvane::FileTool::SurveyOf;
using Corvane::FileTool::Verdict;
using Corvane::FileTool::VerdictOf;
using Corvane::FileTool::Walk;
using Corvane::FileTool::WalkEnd;
using support::ChunkOfSize;
using support::DataChunk;
using support::FileOf;
using support::Lines;
using support::RecordOf;
using support::Word;

constexpr std::uint64_t kSecond = 116;  // positions in Sound()
constexpr std::uint64_t kThird = 176;
constexpr std::uint64_t kEnd = 256;

std::string Sound()
{
    return FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 60), ChunkOfSize(3, 80)});
}

std::string With(std::string file, std::uint64_t at, const std::string& bytes)
{
    return file.replace(at, bytes.size(), bytes);
}

class ToolFileTest : public support::ChunkFileTest {
protected:
    Survey Surveyed(const std::string& file) const
    {
        support::WriteFile(path_, file);
        return SurveyOf(Input(path_), {});
    }

    // The codes, each with its bytes and its record.
    Lines Found(const std::string& file) const
    {
        Lines lines;
        for (const Finding& finding : FindingsOf(Surveyed(file))) {
            lines.push_back(std::string(finding.code) + " " + std::to_string(finding.bytes.begin) + "-" +
                            std::to_string(finding.bytes.end));
            if (finding.record) {
                lines.back() += " record " + std::to_string(*finding.record);
            }
        }
        return lines;
    }

    Verdict Judged(const std::string& file) const
    {
        const Survey survey = Surveyed(file);
        return VerdictOf(FindingsOf(survey), survey);
    }
};

using Findings = ToolFileTest;

TEST_F(Findings, SoundFileHasNone)
{
    EXPECT_EQ(Found(Sound()), Lines{});
    EXPECT_EQ(Found(FileOf({})), Lines{});
    EXPECT_EQ(Judged(Sound()), Verdict::Sound);
}

TEST_F(Findings, ShortFile)
{
    EXPECT_EQ(Found(Sound().substr(0, 15)), Lines{"short-file 0-15"});
    EXPECT_EQ(Found(""), Lines{"short-file 0-0"});
    EXPECT_EQ(Judged(""), Verdict::Damaged);
}

TEST_F(Findings, BadRecordReachesToTheNextGoodOne)
{
    EXPECT_EQ(Found(With(Sound(), kThird - 1, "?")), (Lines{"bad-record 116-176 record 1", "found-after 176-256"}));
    EXPECT_EQ(Found(With(Sound(), kEnd - 1, "?")), Lines{"bad-record 176-256 record 2"});
    EXPECT_EQ(Judged(With(Sound(), kEnd - 1, "?")), Verdict::Damaged);
}

TEST_F(Findings, CutRecordAtEveryByteOfTheLastRecord)
{
    for (std::uint64_t length = kThird + 1; length < kEnd; ++length) {
        EXPECT_EQ(Found(Sound().substr(0, length)), Lines{"cut-record 176-" + std::to_string(length) + " record 2"});
    }
}

TEST_F(Findings, ZerosForRecordEndWhereTheNextByteIsNoZero)
{
    EXPECT_EQ(Found(With(Sound(), kSecond, std::string(60, '\0'))),
              (Lines{"zeros-for-record 116-176 record 1", "found-after 176-256"}));
}

TEST_F(Findings, CountTooHigh)
{
    EXPECT_EQ(Found(With(Sound(), 8, Word(4))), Lines{"count-too-high 256-256 record 3"});
    EXPECT_EQ(Found(With(Sound(), 8, Word(4)) + std::string(10, '\0')), Lines{"count-too-high 256-266 record 3"});
    EXPECT_EQ(Found(Sound().substr(0, kThird)), Lines{"count-too-high 176-176 record 2"});
    EXPECT_EQ(Found(Word(2) + Word(7) + std::string(100, '\0')), Lines{"count-too-high 16-116 record 0"});
}

TEST_F(Findings, SeveralRecordsOfAnotherTypeAreUnknownAndNotDamaged)
{
    for (const std::string& other : {std::string(200, 'x'), std::string(100, '\0') + std::string(100, 'x')}) {
        EXPECT_EQ(Found(Word(2) + Word(3) + other), Lines{"unknown-records 16-216"});
        EXPECT_EQ(Judged(Word(2) + Word(3) + other), Verdict::Unknown);
    }
}

TEST_F(Findings, OneRecordCannotTellDamageFromAnotherType)
{
    EXPECT_EQ(Found(Word(2) + Word(1) + std::string(200, 'x')), Lines{"bad-record 16-216 record 0"});
    EXPECT_EQ(Judged(Word(2) + Word(1) + std::string(200, 'x')), Verdict::Unclear);
}

TEST_F(Findings, OneSignOfTheToolsTypeMakesItDamage)
{
    const std::string onlyTheHeadIsIntact = With(Sound(), 60, std::string(196, 'x'));
    EXPECT_EQ(Judged(onlyTheHeadIsIntact), Verdict::Damaged);
    EXPECT_EQ(Judged(With(Sound(), 16, std::string(160, 'x'))), Verdict::Damaged);
}

TEST_F(Findings, Versions)
{
    EXPECT_EQ(Found(FileOf({ChunkOfSize(1, 60)}, 0)), Lines{"unbounded 0-8"});
    EXPECT_EQ(Found(FileOf({ChunkOfSize(1, 60)}, 3)), Lines{"other-version 0-8"});
    EXPECT_EQ(Judged(FileOf({ChunkOfSize(1, 60)}, 3)), Verdict::Sound);
}

TEST_F(Findings, TimesThatDoNotAscend)
{
    EXPECT_EQ(Found(FileOf({ChunkOfSize(1, 60), ChunkOfSize(1, 70)})), Lines{"equal-times 16-146"});
    EXPECT_EQ(Found(FileOf({ChunkOfSize(2, 60), ChunkOfSize(1, 70)})), Lines{"times-descend 76-146 record 1"});
    EXPECT_EQ(Found(FileOf({ChunkOfSize(1, 60), ChunkOfSize(2, 60), ChunkOfSize(1, 70)})),
              (Lines{"equal-times 16-206", "times-descend 136-206 record 2"}));
}

TEST_F(Findings, WhatFollowsTheLastRecord)
{
    EXPECT_EQ(Found(Sound() + std::string(100, '\0')), Lines{"fill-zero 256-356"});
    EXPECT_EQ(Found(Sound() + std::string(50, '\0') + "x"), Lines{"fill-other 306-307"});
    EXPECT_EQ(Found(With(Sound(), 8, Word(1))), Lines{"older-records 116-256"});
    EXPECT_EQ(Found(Sound() + Sound()), Lines{"second-image 256-512"});
    const std::string bounded = Sound() + std::string(44, '\0');
    EXPECT_EQ(Found(bounded + bounded), Lines{"second-image 300-600"});
}

// Lets reads of [from, to) of one file fail, as a bad block does.
class BadBlock {
public:
    BadBlock(off_t from, off_t to) : from_(from), to_(to)
    {
        calls_.OnEach("pread", [this](const support::SystemCall& call) { return Read(call, call.offset); });
        calls_.OnEach("read", [this](const support::SystemCall& call) {
            const off_t at = ::lseek(call.fd, 0, SEEK_CUR);
            const auto result = Read(call, at);
            if (result && *result > 0) {
                ::lseek(call.fd, at + *result, SEEK_SET);
            }
            return result;
        });
    }

private:
    std::optional<std::int64_t> Read(const support::SystemCall& call, off_t at) const
    {
        if (at >= to_ || at + static_cast<off_t>(call.size) <= from_) {
            return {};
        }
        if (at >= from_) {
            errno = EIO;
            return -1;
        }
        return ::syscall(SYS_pread64, call.fd, call.buffer, from_ - at, at);
    }

    off_t from_;
    off_t to_;
    support::SystemCalls calls_;
};

// Records of 5,000 bytes: page 4096 to 8191 holds parts of record 0 and 1.
class Unreadable : public ToolFileTest {
protected:
    static std::string File()
    {
        std::vector<DataChunk> chunks;
        for (std::int64_t time = 1; time <= 20; ++time) {
            chunks.push_back(ChunkOfSize(time, 5000));
        }
        return FileOf(chunks) + std::string(50'000, '\0');
    }
};

TEST_F(Unreadable, BytesAreNamedSkippedAndNotCalledDamage)
{
    support::WriteFile(path_, File());
    const BadBlock bad(40960, 49152);
    const Survey survey = SurveyOf(Input(path_), {});
    const auto findings = FindingsOf(survey);
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0].code, "unreadable");
    EXPECT_EQ(findings[0].bytes.begin, 40960U);
    EXPECT_EQ(findings[0].bytes.end, 49152U);
    EXPECT_EQ(findings[1].code, "found-after");
    EXPECT_EQ(survey.end.records, 8U);
    EXPECT_EQ(survey.found, 10U);
    EXPECT_EQ(VerdictOf(findings, survey), Verdict::Unreadable);
}

TEST_F(Unreadable, BytesInTheFillLeaveAllRecords)
{
    support::WriteFile(path_, File());
    const BadBlock bad(122'880, 126'976);
    const Survey survey = SurveyOf(Input(path_), {});
    EXPECT_EQ(survey.end.records, 20U);
    ASSERT_EQ(survey.unreadable.size(), 1U);
    EXPECT_EQ(survey.unreadable[0].begin, 122'880U);
    EXPECT_EQ(survey.unreadable[0].end, 126'976U);
    EXPECT_EQ(VerdictOf(FindingsOf(survey), survey), Verdict::Unreadable);
}

TEST_F(Unreadable, BytesAreAPartOfTheMapOfView)
{
    support::WriteFile(path_, File());
    const BadBlock bad(45'056, 49'152);
    const Input input(path_);
    Corvane::FileTool::ViewFacts facts(input);
    Corvane::FileTool::SurveyOptions options;
    options.visit = [&facts](const Corvane::FileTool::FoundRecord& record) { return facts.Add(record), true; };
    facts.Finish(SurveyOf(input, options));
    std::uint64_t at = 0;
    std::uint64_t sum = 0;
    for (const auto& [bytes, kind] : facts.Map().Parts()) {
        EXPECT_EQ(bytes.begin, at);
        at = bytes.end;
        sum += kind == ByteKind::Unreadable ? at - bytes.begin : 0;
    }
    EXPECT_EQ(at, input.Size());
    EXPECT_EQ(sum, 4096U);
    EXPECT_EQ(facts.Map().Sum(ByteKind::Unreadable), sum);
    EXPECT_EQ(facts.Map().KindOf(45'056 / facts.Map().CellSize()), ByteKind::Unreadable);
}

TEST_F(Unreadable, BytesAreNamedAndSkippedByScan)
{
    support::WriteFile(path_, File());
    const BadBlock bad(40960, 49152);
    Corvane::FileTool::Options options;
    options.paths = {path_};
    options.scan = true;
    options.format = Corvane::FileTool::Format::Csv;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Corvane::FileTool::Terminal terminal(options);
    const auto code = Corvane::FileTool::List(options, terminal);
    terminal.Flush();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(code, Corvane::FileTool::Exit::CouldNot);
    EXPECT_EQ(std::ranges::count(out, '\n'), 1 + 8 + 10);  // names, counted and found records
    EXPECT_NE(testing::internal::GetCapturedStderr().find(": bytes 40960 to 49152: cannot be read\n"),
              std::string::npos);
}

TEST_F(Unreadable, HeaderIsAnError)
{
    support::WriteFile(path_, File());
    const BadBlock bad(0, 4096);
    EXPECT_THROW(SurveyOf(Input(path_), {}), std::runtime_error);
}

TEST_F(Findings, FileThatChangesMeanwhileSaysSo)
{
    support::WriteFile(path_, Sound());
    const Input input(path_);
    Corvane::FileTool::SurveyOptions options;
    options.progress = [&](std::uint64_t) { support::WriteFile(path_, Sound() + "more"); };
    const auto findings = FindingsOf(SurveyOf(input, options));
    EXPECT_EQ(findings.front().code, "changed");
}

// Which records after damage count as the file's.
class Judgement : public ToolFileTest {
protected:
    // Chunks of these times, all of 60 bytes.
    static std::string Records(const std::vector<std::int64_t>& times, std::uint64_t size = 60)
    {
        std::string records;
        for (const std::int64_t time : times) {
            records += RecordOf(ChunkOfSize(time, size));
        }
        return records;
    }

    static std::string Header(std::uint64_t count) { return Word(2) + Word(count); }

    // Good records after damage as "index time standing".
    Lines AfterDamage(const std::string& file) const
    {
        support::WriteFile(path_, file);
        const Input input(path_);
        Walk walk(input, true);
        EXPECT_EQ(walk.Counted({}).kind, WalkEnd::Kind::NotGood);
        Lines lines;
        walk.AfterEnd([&](const FoundRecord& record) {
            const bool found = record.standing == Standing::Found;
            lines.push_back((found ? std::to_string(record.index) + " " : "? ") +
                            std::to_string(record.chunk.GetTimePoint().Nanoseconds()));
            return true;
        });
        return lines;
    }

    static std::string Bad() { return std::string(60, 'x'); }
};

TEST_F(Judgement, RunThatEndsWhereTheCountEndsIsFound)
{
    EXPECT_EQ(AfterDamage(Header(4) + Records({1}) + Bad() + Records({3, 2})), (Lines{"2 3", "3 2"}));
    EXPECT_EQ(AfterDamage(Header(5) + Records({7, 6}) + Bad() + Records({3, 2})), (Lines{"3 3", "4 2"}));
}

// It looks like the rest of an older file.
TEST_F(Judgement, RunThatBeginsWithTheFirstEarlierTimeIsDoubtful)
{
    EXPECT_EQ(AfterDamage(Header(4) + Records({5, 6}) + Bad() + Records({3})), (Lines{"? 3"}));
}

// Nothing tells them from the rest of an older file, unless they end where the count ends.
TEST_F(Judgement, RunAfterADamagedFirstRecordIsDoubtfulIfSomeAreMissing)
{
    EXPECT_EQ(AfterDamage(Header(4) + Bad() + Records({3, 4})), (Lines{"? 3", "? 4"}));
    EXPECT_EQ(AfterDamage(Header(3) + Bad() + Records({3, 4})), (Lines{"1 3", "2 4"}));
}

TEST_F(Judgement, RunWhoseTimesAscendIsFoundThoughSomeAreMissing)
{
    EXPECT_EQ(AfterDamage(Header(9) + Records({1}) + Bad() + Records({3, 4})), (Lines{"2 3", "3 4"}));
    EXPECT_EQ(AfterDamage(Header(9) + Records({5}) + Bad() + Records({3, 4})), (Lines{"? 3", "? 4"}));
    EXPECT_EQ(AfterDamage(Header(9) + Records({1}) + Bad() + Records({4, 3})), (Lines{"? 4", "? 3"}));
}

TEST_F(Judgement, EachFurtherGapTakesTheRoomOfARecord)
{
    const std::string two = Records({1}) + Bad() + Records({3}) + Bad() + Records({5, 6});
    EXPECT_EQ(AfterDamage(Header(6) + two), (Lines{"2 3", "4 5", "5 6"}));
    EXPECT_EQ(AfterDamage(Header(5) + two), (Lines{"2 3", "? 5", "? 6"}));
}

TEST_F(Judgement, MoreRecordsThanTheHeaderCountsAreDoubtful)
{
    EXPECT_EQ(AfterDamage(Header(3) + Records({1}) + Bad() + Records({3, 4})), (Lines{"? 3", "? 4"}));
}

TEST_F(Judgement, TimePointThatTheFileHoldsMakesARunDoubtful)
{
    EXPECT_EQ(AfterDamage(Header(5) + Records({1, 2}) + Bad() + Records({9, 1})), (Lines{"? 9", "? 1"}));
    EXPECT_EQ(AfterDamage(Header(5) + Records({2, 1}) + Bad() + Records({9, 8})), (Lines{"3 9", "4 8"}));
}

TEST_F(Judgement, DoubtfulRunsTakeNoRoom)
{
    EXPECT_EQ(AfterDamage(Header(4) + Records({5}) + Bad() + Records({5}) + Bad() + Records({7, 8})),
              (Lines{"? 5", "2 7", "3 8"}));
}

// A value may hold a whole chunk file, whose last record ends where the record does.
TEST_F(Judgement, RecordsInsideADamagedRecordAreDoubtfulAndTheNextOneIsFound)
{
    DataChunk chunk(Corvane::Time::TimePoint(2));
    chunk.Set("file", Header(2) + Records({100, 101}));
    std::string record = RecordOf(chunk);
    record[56 + 4 + 5] = 'X';  // a byte of the inner header
    EXPECT_EQ(AfterDamage(Header(3) + Records({1}) + record + Records({3})), (Lines{"? 100", "? 101", "2 3"}));
}

TEST_F(Judgement, RestOfAnOlderLongerFileIsDoubtful)
{
    std::vector<std::int64_t> newer(2500);
    std::vector<std::int64_t> older(13'760);
    for (std::size_t i = 0; i < older.size(); ++i) {
        older[i] = static_cast<std::int64_t>(i);
    }
    for (std::size_t i = 0; i < newer.size(); ++i) {
        newer[i] = 100'000 + static_cast<std::int64_t>(i);
    }
    std::string file = Header(newer.size()) + Records(newer, 70);
    file[16 + 70 * 1000 + 50] ^= 1;
    const std::string before = Header(older.size()) + Records(older);
    const Survey survey = Surveyed(file + before.substr(file.size()));
    EXPECT_EQ(survey.end.records, 1000U);
    EXPECT_EQ(survey.found, 1499U);
    EXPECT_EQ(survey.doubtful, (before.size() - file.size()) / 60);
}

}  // namespace
