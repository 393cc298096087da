// chunkfile info and check as programs: exit codes, formats, folders, files that are none, and memory.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "RunTool.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"

namespace {

using support::ChunkOfSize;
using support::FileOf;
using support::Ran;
using support::Word;

class ToolProgram : public testing::Test {
protected:
    ToolProgram()
    {
        Put("sound", FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 60)}));
        Put("damaged", FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 60)}).substr(0, 150));
        Put("unbounded", FileOf({ChunkOfSize(1, 100)}, 0));
        Put("unknown", Word(2) + Word(3) + std::string(100, 'x'));
    }

    void Put(const std::string& name, const std::string& bytes) const { support::WriteFile(folder_ / name, bytes); }
    Ran Run(const std::string& command) const { return support::RunShell(folder_.Path(), command); }
    int CodeOf(const std::string& command) const { return Run(command).code; }

    support::TemporaryFolder folder_;
};

TEST_F(ToolProgram, ExitCodesOfCheck)
{
    EXPECT_EQ(CodeOf("$CHUNKFILE check sound"), 0);
    EXPECT_EQ(CodeOf("$CHUNKFILE check unbounded"), 0);
    EXPECT_EQ(CodeOf("$CHUNKFILE check --strict unbounded"), 3);
    EXPECT_EQ(CodeOf("$CHUNKFILE check damaged"), 3);
    EXPECT_EQ(CodeOf("$CHUNKFILE check unknown"), 3);
    EXPECT_EQ(CodeOf("$CHUNKFILE check absent"), 1);
    EXPECT_EQ(CodeOf("$CHUNKFILE check"), 2);
}

TEST_F(ToolProgram, ReopeningThatThrowsIsFoundIfAMaximumSizeIsGiven)
{
    EXPECT_EQ(CodeOf("$CHUNKFILE check sound --max-size 176"), 0);
    EXPECT_EQ(CodeOf("$CHUNKFILE check sound --max-size 175"), 3);
    EXPECT_EQ(CodeOf("$CHUNKFILE check sound --max-size 0"), 0);
    EXPECT_EQ(CodeOf("$CHUNKFILE check unbounded --max-size 0"), 3);
    EXPECT_EQ(CodeOf("$CHUNKFILE check unbounded"), 0);
    EXPECT_NE(Run("$CHUNKFILE check -q sound --max-size 175").out.find("a reopening with maximum size 175 throws: "),
              std::string::npos);
}

TEST_F(ToolProgram, SizesHaveUnits)
{
    const auto maxSize = [this](const std::string& text) {
        const std::string out = Run("$CHUNKFILE check --format json sound --max-size " + text).out;
        const std::string member = "\"maxSize\":";
        const std::size_t begin = out.find(member) + member.size();
        return out.substr(begin, out.find(',', begin) - begin);
    };
    EXPECT_EQ(maxSize("200"), "200");
    EXPECT_EQ(maxSize("200B"), "200");
    EXPECT_EQ(maxSize("3KiB"), "3072");
    EXPECT_EQ(maxSize("4MiB"), "4194304");
    EXPECT_EQ(maxSize("5GiB"), "5368709120");
}

TEST_F(ToolProgram, SumFollowsSeveralFilesInATable)
{
    const auto sum = [this](const std::string& arguments) {
        const std::string out = Run("$CHUNKFILE check " + arguments).out;
        return out.substr(out.rfind('\n', out.size() - 2) + 1);
    };
    EXPECT_EQ(sum("sound sound"), "2 files: 2 sound\n");
    EXPECT_EQ(sum("sound damaged unbounded unknown absent damaged"),
              "6 files: 1 sound, 1 sound with warnings, 2 damaged, 1 unknown, 1 unreadable\n");
    EXPECT_EQ(sum("sound unbounded damaged --max-size 160"), "3 files: 2 sound but not reopenable, 1 damaged\n");
    std::filesystem::create_directories(folder_ / "f/g");
    EXPECT_EQ(sum("f"), "0 files\n");
    Put("f/a", FileOf({}));
    EXPECT_EQ(sum("f").find("files"), std::string::npos);
    Put("f/g/b", FileOf({}));
    EXPECT_EQ(sum("f"), "2 files: 2 sound\n");
    for (const char* const without : {"-q", "--format json", "--format csv", ""}) {
        const bool isOne = *without == '\0';
        const std::string arguments = std::string(without) + (isOne ? " damaged" : " damaged damaged");
        EXPECT_EQ(sum(arguments).find("2 files"), std::string::npos) << arguments;
    }
}

TEST_F(ToolProgram, ExitCodesOfInfo)
{
    EXPECT_EQ(CodeOf("$CHUNKFILE info sound unbounded"), 0);
    EXPECT_EQ(CodeOf("$CHUNKFILE info sound damaged"), 3);
    EXPECT_EQ(CodeOf("$CHUNKFILE info damaged absent"), 1);
}

TEST_F(ToolProgram, GravestCodeOfManyFilesCounts)
{
    EXPECT_EQ(CodeOf("$CHUNKFILE check damaged sound"), 3);
    EXPECT_EQ(CodeOf("$CHUNKFILE check absent damaged"), 1);
    EXPECT_EQ(CodeOf("$CHUNKFILE check damaged absent sound"), 1);
}

TEST_F(ToolProgram, ErrorNamesFilePositionAndRecord)
{
    const Ran ran = Run("$CHUNKFILE info damaged");
    EXPECT_EQ(ran.err, "chunkfile: damaged: byte 116 (record 1): not a good record\n");
    EXPECT_EQ(Run("$CHUNKFILE check absent").err, "chunkfile: absent: No such file or directory\n");
}

TEST_F(ToolProgram, CheckSaysWhatItFound)
{
    EXPECT_EQ(
        Run("$CHUNKFILE check damaged").out,
        "damaged: damaged\n"
        "  error cut-record: bytes 116 to 150, record 1, after 1970-01-01T00:00:00.000000001Z: the file ends inside "
        "this record: it has 34 bytes\n"
        "  a reopening keeps 1 of 2 records and 1 time point; an append then writes from byte 116 on, over "
        "cut-record\n");
}

TEST_F(ToolProgram, TableSaysHowManyRunsItLeavesOut)
{
    std::string file = Word(2) + Word(1000);
    for (std::int64_t time = 1; time <= 152; ++time) {
        file += support::RecordOf(ChunkOfSize(time, 60)) + "junk";
    }
    Put("runs", file);
    const std::string out = Run("$CHUNKFILE check runs").out;
    EXPECT_NE(out.find("in 151 runs\n"), std::string::npos) << out;
    EXPECT_NE(out.find(" good record\n    and 51 more runs\n  a reopening"), std::string::npos) << out;
}

TEST_F(ToolProgram, CheckAsJson)
{
    EXPECT_EQ(
        Run("$CHUNKFILE check --format json unbounded").out,
        R"({"schema":"chunkfile.check/1","file":"unbounded","verdict":"sound","size":116,"version":"0","count":"1",)"
        R"("records":1,"end":116,"first":"1970-01-01T00:00:00.000000001Z","last":"1970-01-01T00:00:00.000000001Z",)"
        R"("findings":[{"severity":"warning","code":"unbounded","begin":0,"end":8,"text":"version 0, of a file )"
        R"(written without maximum size: it can be read, but not reopened"}],"after":{"found":0,"doubtful":0,)"
        R"("numberOfRuns":0,"runs":[]},"reopening":{"maxSize":0,"accepted":false,"error":"DataChunkFileAppender: )"
        R"(file unbounded is stored with version 0 instead of version 2: we don't know how to read this file"}})"
        "\n");
}

TEST_F(ToolProgram, CheckAsCsvHasALineForEachFinding)
{
    EXPECT_EQ(
        Run("$CHUNKFILE check --format csv sound unknown").out,
        "file,verdict,severity,code,begin,end,record,time,text\r\n"
        "sound,sound,,,,,,,\r\n"
        "unknown,unknown,error,unknown-records,16,116,,,\"3 records are counted, and none is of this tool's chunk "
        "type\"\r\n");
}

TEST_F(ToolProgram, QuietCheckLeavesOutFilesThatAreFine)
{
    const Ran ran = Run("$CHUNKFILE check -q sound damaged absent");
    EXPECT_EQ(ran.out, Run("$CHUNKFILE check damaged").out);
    EXPECT_EQ(Run("$CHUNKFILE check -q sound").out, "");
    EXPECT_EQ(ran.err, "chunkfile: absent: No such file or directory\n");
}

TEST_F(ToolProgram, StandardInputIsAFileToo)
{
    EXPECT_EQ(Run("cat damaged | $CHUNKFILE check -").out.substr(0, 25), "standard input: damaged\n ");
    EXPECT_EQ(CodeOf("cat sound | $CHUNKFILE check -"), 0);
    EXPECT_EQ(CodeOf("$CHUNKFILE check - <damaged"), 3);
}

TEST_F(ToolProgram, FoldersAreCheckedRecursivelyWithoutLinksAndFifos)
{
    std::filesystem::create_directories(folder_ / "f/g");
    Put("f/b", FileOf({}));
    Put("f/g/c", FileOf({}));
    std::filesystem::create_symlink("..", folder_ / "f/g/link");
    ASSERT_EQ(::mkfifo((folder_ / "f/a").c_str(), 0600), 0);
    EXPECT_EQ(Run("$CHUNKFILE check --format csv f").out,
              "file,verdict,severity,code,begin,end,record,time,text\r\nf/b,sound,,,,,,,\r\nf/g/c,sound,,,,,,,\r\n");
}

TEST_F(ToolProgram, WhatIsNoRegularFileIsRefusedAndDoesNotBlock)
{
    ASSERT_EQ(::mkfifo((folder_ / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(Run("$CHUNKFILE check fifo /dev/null").err,
              "chunkfile: fifo: not a regular file\nchunkfile: /dev/null: not a regular file\n");
    EXPECT_EQ(Run("$CHUNKFILE info .").err, "chunkfile: .: is a folder\n");
}

TEST_F(ToolProgram, FilesOfProcAreReadToTheirEnd)
{
    EXPECT_EQ(CodeOf("$CHUNKFILE check /proc/self/status"), 3);
    EXPECT_NE(Run("$CHUNKFILE check /proc/self/status").out.find("unknown"), std::string::npos);
}

TEST_F(ToolProgram, FileThatMayNotBeReadIsNamed)
{
    ASSERT_EQ(::chmod((folder_ / "sound").c_str(), 0), 0);
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0777), 0);
    EXPECT_EQ(support::RunInChild([&] {
                  support::BecomeUnprivileged();
                  const Ran ran = Run("$CHUNKFILE check sound");
                  EXPECT_EQ(ran.code, ::geteuid() == 0 ? 0 : 1);
                  EXPECT_EQ(ran.err, "chunkfile: sound: Permission denied\n");
              }),
              0);
}

TEST_F(ToolProgram, AnotherUsersFileIsReadAndItsReopeningRefused)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root to make another user's file";
    }
    ASSERT_EQ(::chmod((folder_ / "sound").c_str(), 0666), 0);
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0777), 0);
    EXPECT_EQ(support::RunInChild([&] {
                  support::BecomeUnprivileged();
                  const Ran ran = Run("$CHUNKFILE check sound");
                  EXPECT_EQ(ran.code, 0);
                  EXPECT_EQ(ran.out,
                            "sound: sound\n  a reopening throws: DataChunkFileAppender could not open file sound: "
                            "Operation not permitted\n");
              }),
              0);
}

TEST_F(ToolProgram, NothingIsChangedNotEvenTheAccessTime)
{
    const std::string before = Run("stat -c %x%y%z sound damaged").out;
    EXPECT_EQ(CodeOf("$CHUNKFILE check --max-size 5000 sound damaged; $CHUNKFILE info sound damaged"), 3);
    EXPECT_EQ(Run("stat -c %x%y%z sound damaged").out, before);
}

TEST_F(ToolProgram, HugeFileOfHolesIsCheckedAtOnce)
{
    Put("huge", FileOf({ChunkOfSize(1, 100)}));
    std::error_code error;
    std::filesystem::resize_file(folder_ / "huge", std::uint64_t{1} << 40U, error);
    if (error) {
        GTEST_SKIP() << "no file of 1 TiB here: " << error.message();
    }
    EXPECT_EQ(CodeOf("timeout 20 $CHUNKFILE check huge"), 0);
    support::WriteFile(folder_ / "header", Word(2) + Word(5));
    std::filesystem::resize_file(folder_ / "header", std::uint64_t{1} << 40U);
    EXPECT_EQ(CodeOf("timeout 20 $CHUNKFILE check header"), 3);
    Put("damage", FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 100)}).replace(116, 100, 100, 'x'));
    std::filesystem::resize_file(folder_ / "damage", std::uint64_t{1} << 40U);
    EXPECT_EQ(CodeOf("timeout 20 $CHUNKFILE check damage"), 3);
}

TEST_F(ToolProgram, InfoCallsAFileWithoutAHeaderThat)
{
    const Ran ran = Run("head -c 15 sound | $CHUNKFILE info -");
    EXPECT_EQ(ran.out.substr(0, ran.out.find('\n', 17)), "standard input\n  version     none: the header is cut")
        << ran.out;
    EXPECT_EQ(ran.err, "chunkfile: standard input: no whole header\n");
}

TEST_F(ToolProgram, OneRecordASecondIsOne)
{
    const auto info = [this](std::int64_t second) {
        Put("two", FileOf({ChunkOfSize(1'000'000'000, 100), ChunkOfSize(second, 100)}));
        return Run("$CHUNKFILE info two").out;
    };
    EXPECT_NE(info(2'000'000'000).find(", 1 record a second\n"), std::string::npos) << info(2'000'000'000);
    EXPECT_NE(info(1'500'000'000).find(", 2 records a second\n"), std::string::npos) << info(1'500'000'000);
}

TEST_F(ToolProgram, InfoCountsFields)
{
    const Ran ran = Run("$CHUNKFILE info --fields --format json sound");
    EXPECT_NE(ran.out.find(R"("fields":[{"name":"p","records":2}])"), std::string::npos) << ran.out;
    EXPECT_NE(Run("$CHUNKFILE info --fields sound").out.find("\n  field       p: 2\n"), std::string::npos);
    EXPECT_NE(Run("$CHUNKFILE info --fields --format csv sound").out.find(",nothing,0,p:2\r\n"), std::string::npos);
}

// A glue that declines everything: times as they print, no fields, and the same judgement otherwise.
TEST_F(ToolProgram, MinimalPlatformIsJudgedByItsContractAlone)
{
    EXPECT_EQ(CodeOf("$MINIMAL check sound"), 3);
    EXPECT_NE(Run("$MINIMAL check sound").out.find("unknown-records"), std::string::npos);
    EXPECT_EQ(CodeOf("$MINIMAL check unbounded"), 3);  // one record: it cannot tell
    EXPECT_NE(Run("$MINIMAL check unbounded").out.find("unclear"), std::string::npos);
    EXPECT_NE(Run("$MINIMAL info sound").out.find("\n  after it    unknown records\n"), std::string::npos);
    EXPECT_NE(Run("$MINIMAL info unbounded").out.find("\n  after it    damaged or unknown record\n"),
              std::string::npos);
}

// 32 MiB, the largest record, and 9 bytes for each of a million records.
TEST_F(ToolProgram, MemoryIsBounded)
{
    if (support::kSanitized) {
        GTEST_SKIP() << "sanitizers take memory of their own";
    }
    std::ofstream file(folder_ / "large", std::ios::binary);  // not in memory, which a child's peak would include
    file << Word(2) << Word(1'000'000);
    for (std::int64_t time = 0; time < 1'000'000; ++time) {
        file << support::RecordOf(ChunkOfSize(time * 7919 % 1'000'003, 57));
    }
    file.close();
    EXPECT_EQ(CodeOf("$CHUNKFILE check large"), 0);
    EXPECT_EQ(CodeOf("$CHUNKFILE view large -o page"), 0);
    rusage after = {};
    ::getrusage(RUSAGE_CHILDREN, &after);
    EXPECT_LT(after.ru_maxrss, (32 << 10) + 9'000'000 / 1024);  // KiB
}

}  // namespace
