#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>

#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/SystemCalls.h"

// The example's main function, renamed and linked into this program.
int ReplaceFileMain(int count, char** arguments);

namespace {

using support::Lines;
using support::SystemCall;
using support::SystemCalls;

class ReplaceFile : public testing::Test {
protected:
    // Runs the example and returns its exit code; errors_ holds its output.
    int Run(Lines arguments)
    {
        arguments.insert(arguments.begin(), "replace_file");
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        std::ostringstream errors;
        std::streambuf* const before = std::cerr.rdbuf(errors.rdbuf());
        const int code = ReplaceFileMain(static_cast<int>(arguments.size()), pointers.data());
        std::cerr.rdbuf(before);
        errors_ = errors.str();
        return code;
    }

    // The texts in the file, in order.
    Lines Texts() const
    {
        Lines texts;
        for (const support::DataChunk& chunk : support::ReadAll(path_)) {
            texts.push_back(*chunk.Get("text"));
        }
        return texts;
    }

    support::TemporaryFolder folder_;
    std::string path_ = folder_ / "a";
    std::string fresh_ = folder_ / "a.new";
    std::string errors_;
    support::LogCapture log_{50};
};

// Each system call with the name of its file or folder.
Lines Steps(const SystemCalls& calls)
{
    Lines steps;
    std::map<std::int64_t, std::string> names;
    for (const SystemCall& call : calls.Calls()) {
        if (call.name == "open") {
            names[call.result] = call.path;
        }
        const std::string path = call.fd == -1 ? call.path : names[call.fd];
        steps.push_back(call.name + " " + std::filesystem::path(path).filename().string());
    }
    return steps;
}

TEST_F(ReplaceFile, WritesSyncsRenamesAndSyncsTheFolder)
{
    const std::string folder = std::filesystem::path(folder_.Path()).filename();
    const SystemCalls calls;
    ASSERT_EQ(Run({path_, "one", "two"}), 0);
    EXPECT_EQ(Steps(calls),
              (Lines{"remove a.new", "open a.new", "write a.new", "close a.new", "open a.new", "fsync a.new",
                     "close a.new", "rename a.new", "open " + folder, "fsync " + folder, "close " + folder}));
    EXPECT_EQ(calls.Calls("rename").at(0).target, path_);
}

TEST_F(ReplaceFile, ReplacesTheOldFileAndLeavesNoOther)
{
    ASSERT_EQ(Run({path_, "old"}), 0);
    ASSERT_EQ(Run({path_, "one", "two"}), 0);
    EXPECT_EQ(Texts(), (Lines{"one", "two"}));
    EXPECT_EQ(folder_.Names(), std::set<std::string>{"a"});
}

TEST_F(ReplaceFile, FileInTheCurrentFolderCanBeReplaced)
{
    const int result = support::RunInChild([this] {
        std::filesystem::current_path(folder_.Path());
        EXPECT_EQ(Run({"a", "one"}), 0) << errors_;
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(Texts(), Lines{"one"});
}

TEST_F(ReplaceFile, UsageIsPrinted)
{
    EXPECT_EQ(Run({}), 1);
    EXPECT_NE(errors_.find("usage: replace_file FILE"), std::string::npos);
}

TEST_F(ReplaceFile, RefusedChunkLeavesTheOldFile)
{
    ASSERT_EQ(Run({path_, "old"}), 0);
    EXPECT_EQ(Run({path_, "one", std::string(70000, 'x')}), 1);
    EXPECT_EQ(errors_, "replace_file: cannot append to " + fresh_ + ": see the log\n");
    EXPECT_EQ(Texts(), Lines{"old"});
}

// A system call of the example that fails, and the reported text.
struct FailedStep {
    std::string name;
    std::function<void(SystemCalls& calls)> fail;
    std::string told;
};

void PrintTo(const FailedStep& step, std::ostream* stream)
{
    *stream << step.name;
}

class FailedReplaceFile : public ReplaceFile, public testing::WithParamInterface<FailedStep> {
protected:
    FailedReplaceFile()
    {
        EXPECT_EQ(Run({path_, "old"}), 0);
        std::filesystem::copy_file(path_, fresh_);  // left by an earlier attempt, with the length of the new file
        descriptors_ = support::OpenDescriptors();
    }
    ~FailedReplaceFile() override { EXPECT_EQ(support::OpenDescriptors(), descriptors_); }

    // Runs the example while the step fails.
    void RunFailing()
    {
        SystemCalls calls;
        GetParam().fail(calls);
        EXPECT_EQ(Run({path_, "new"}), 1);
        EXPECT_EQ(calls.Fired(), 1U);
        EXPECT_EQ(errors_.find("replace_file: "), 0U);
        EXPECT_NE(errors_.find(GetParam().told), std::string::npos) << errors_;
    }

private:
    std::set<int> descriptors_;
};

class StepUpToTheRename : public FailedReplaceFile {};
class StepAfterTheRename : public FailedReplaceFile {};

TEST_P(StepUpToTheRename, IsReportedAndLeavesTheOldFile)
{
    const std::string old = support::ReadFile(path_);
    RunFailing();
    EXPECT_EQ(support::ReadFile(path_), old);
}

TEST_P(StepAfterTheRename, IsReportedAndTheNewFileIsWhole)
{
    RunFailing();
    EXPECT_EQ(Texts(), Lines{"new"});
}

INSTANTIATE_TEST_SUITE_P(
    Steps, StepUpToTheRename,
    testing::Values(
        FailedStep{"Removal", [](auto& calls) { calls.Fail("remove", EACCES); }, "cannot remove: Permission denied"},
        FailedStep{"Creation", [](auto& calls) { calls.Fail("open", EROFS); }, "a.new: Read-only file system"},
        FailedStep{"Writing", [](auto& calls) { calls.Fail("write", ENOSPC); }, "a.new: see the log"},
        FailedStep{"WritingAll", [](auto& calls) { calls.Shorten("write", 65535); }, "a.new: see the log"},
        FailedStep{"OpeningToSync", [](auto& calls) { calls.Fail("open", EMFILE, 1); }, "a.new: Too many open files"},
        FailedStep{"Syncing", [](auto& calls) { calls.Fail("fsync", EIO); }, "a.new: Input/output error"},
        FailedStep{"Renaming", [](auto& calls) { calls.Fail("rename", EIO); }, "cannot rename: Input/output error"}),
    testing::PrintToStringParamName());

INSTANTIATE_TEST_SUITE_P(
    Steps, StepAfterTheRename,
    testing::Values(
        FailedStep{"OpeningTheFolder", [](auto& calls) { calls.Fail("open", EMFILE, 2); }, ": Too many open files"},
        FailedStep{"SyncingTheFolder", [](auto& calls) { calls.Fail("fsync", EIO, 1); }, ": Input/output error"}),
    testing::PrintToStringParamName());

}  // namespace
