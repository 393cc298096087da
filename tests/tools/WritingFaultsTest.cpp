// Whatever fails while recover, copy, import and view write: OUT is the old file or the whole new one, and nothing else
// stays.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <array>
#include <csignal>
#include <fstream>
#include <map>

#include "Corvane/File/Descriptor.h"
#include "WritingTest.h"
#include "support/Allocations.h"

namespace {

using Corvane::FileTool::Copy;
using Corvane::FileTool::Exit;
using Corvane::FileTool::Import;
using Corvane::FileTool::Recover;
using Corvane::FileTool::View;
using support::FileOf;
using support::ReadFile;
using support::SystemCall;
using support::SystemCalls;

constexpr const char* kOld = "the old file";

// What is written, and how.
struct Work {
    const char* name;
    decltype(&Recover) command;
    bool isDamaged;
    bool replaces;
    std::uint64_t splitBytes = 0;
};

constexpr const char* kRows = R"({"time":5,"a":"b"}
{"time":7,"a":[1,{"c":null}]}
{"time":6,"a":"b"}
)";

class WritingFaults : public support::WritingTest, public testing::WithParamInterface<Work> {
protected:
    WritingFaults()
    {
        std::string file = sound_;
        if (GetParam().isDamaged) {
            file[16 + 60 + 39] ^= 1;  // in record 1
            chunks_.erase(chunks_.begin() + 1);
        }
        Put(GetParam().command == Import ? kRows : file);
        options_.splitBytes = GetParam().splitBytes;
        options_.import.timeUnit = 1;
        source_ = ReadFile(path_);
        whole_ = Undisturbed();
    }

    Exit Write() const { return Run(GetParam().command); }

    static bool WritesPage() { return GetParam().command == View; }

    void Prepare() const
    {
        for (const std::string& name : folder_.Names()) {
            if (name != "a") {
                std::filesystem::remove(folder_ / name);
            }
        }
        if (GetParam().replaces) {
            support::WriteFile(out_, kOld);
        }
    }

    // The files that an undisturbed run writes, by their names.
    std::map<std::string, std::string> Undisturbed() const
    {
        Prepare();
        Write();
        std::map<std::string, std::string> files;
        for (const std::string& name : folder_.Names()) {
            if (name != "a") {
                files[name] = ReadFile(folder_ / name);
            }
        }
        return files;
    }

    // How often each call is made.
    std::map<std::string, std::uint64_t> Counts() const
    {
        Prepare();
        const SystemCalls calls;
        Write();
        std::map<std::string, std::uint64_t> counts;
        for (const std::string& name : calls.Names()) {
            ++counts[name];
        }
        for (const char* left : {"munmap", "mprotect", "madvise", "unlinkat"}) {  // the last leaves the file, of course
            counts.erase(left);
        }
        return counts;
    }

    // A file with fewer records is whole too, and a page about them, if the exit code says that some were lost.
    bool IsWhole(const std::string& file, const std::string& undisturbed, Exit code) const
    {
        if (file == undisturbed) {
            return true;
        }
        if (WritesPage()) {
            return code != Exit::Fine && file.ends_with("</html>\n");
        }
        support::WriteFile(folder_ / "b", file);
        const auto chunks = support::ReadAll(folder_ / "b");
        std::filesystem::remove(folder_ / "b");
        return code != Exit::Fine && file == FileOf(chunks) &&
               std::all_of(chunks.begin(), chunks.end(), [&](const support::DataChunk& chunk) {
                   return undisturbed.find(support::RecordOf(chunk)) != std::string::npos;
               });
    }

    void ExpectOldOrWhole(Exit code) const
    {
        std::uint64_t whole = 0;
        for (const std::string& name : folder_.Names()) {
            if (name == "a") {
                continue;
            }
            ASSERT_EQ(whole_.count(name), 1U) << name << " is litter";
            const std::string file = ReadFile(folder_ / name);
            const bool isOld = GetParam().replaces && file == kOld;
            ASSERT_TRUE(isOld || IsWhole(file, whole_.at(name), code)) << name;
            whole += isOld ? 0 : 1;
        }
        ASSERT_TRUE(code != Exit::Fine || whole == whole_.size());
        ASSERT_TRUE(ReadFile(path_) == source_) << "the source has changed";
    }

    // Runs it once for each call of the undisturbed run.
    void ForEachCall(const std::function<void(const std::string& name, std::uint64_t nth)>& run) const
    {
        std::uint64_t cases = 0;
        for (const auto& [name, count] : Counts()) {
            for (std::uint64_t nth = 0; nth < count && !HasFatalFailure(); ++nth, ++cases) {
                SCOPED_TRACE(testing::Message() << name << " " << nth);
                Prepare();
                run(name, nth);
            }
        }
        EXPECT_GT(cases, WritesPage() ? 30U : 40U);
    }

    // The signal that ended a child which gets it at this call; 0 if none did. What it prints goes to `output`.
    int EndedBy(int signal, const std::string& name, std::uint64_t nth, int output = STDOUT_FILENO) const
    {
        const int code = support::RunInChild([&] {
            ::dup2(output, STDOUT_FILENO);
            SystemCalls calls;
            calls.On(name, nth, [signal](const SystemCall&) {
                ::raise(signal);
                return std::nullopt;
            });
            support::WithoutSync(calls);
            Write();
        });
        EXPECT_TRUE(code == 0 || code == 128 + signal) << code;
        return code == 0 ? 0 : signal;
    }

    std::string source_;
    std::map<std::string, std::string> whole_;  // what is written, by names
};

TEST_P(WritingFaults, EachFailingCallLeavesTheOldFileOrTheNewOne)
{
    ForEachCall([this](const std::string& name, std::uint64_t nth) {
        const auto descriptors = support::OpenDescriptors();
        Exit code = Exit::Fine;
        {
            SystemCalls calls;
            calls.On(name, nth, [&](const SystemCall& call) {
                if (call.name == "close") {
                    ::close(call.fd);
                }
                errno = call.name == "write" ? ENOSPC : EIO;
                return -1;
            });
            support::WithoutSync(calls);
            code = Write();
            ASSERT_GE(calls.Fired(), 1U);
        }
        ASSERT_EQ(support::OpenDescriptors(), descriptors);
        ASSERT_NO_FATAL_FAILURE(ExpectOldOrWhole(code));
    });
}

TEST_P(WritingFaults, EachShortWriteLeavesTheOldFile)
{
    for (std::uint64_t nth = 0; nth < Counts()["write"]; ++nth) {
        Prepare();
        SystemCalls calls;
        calls.Shorten("write", 15, nth);
        const Exit code = Write();
        EXPECT_EQ(calls.Fired(), 1U);
        EXPECT_EQ(code == Exit::Fine, WritesPage());  // a page can be written in pieces
        ASSERT_NO_FATAL_FAILURE(ExpectOldOrWhole(code));
    }
}

TEST_P(WritingFaults, EachFailingAllocationLeavesTheOldFileOrTheNewOne)
{
    Prepare();
    SystemCalls calls;
    support::WithoutSync(calls);
    Exit code = Exit::Fine;
    const std::uint64_t failures = support::FailEveryAllocation([&] { code = Write(); },
                                                                [&] {
                                                                    ExpectOldOrWhole(Exit::CouldNot);
                                                                    Prepare();
                                                                    calls.Clear();
                                                                });
    EXPECT_GT(failures, 50U);
}

// SIGKILL may leave the fresh file.
TEST_P(WritingFaults, KillAtEachCallLeavesTheOldFileOrTheNewOne)
{
    ForEachCall([this](const std::string& name, std::uint64_t nth) {
        EXPECT_EQ(EndedBy(SIGKILL, name, nth), SIGKILL);
        for (const std::string& left : folder_.Names()) {
            if (left.starts_with(".corvane.") || left.starts_with("out.")) {
                std::filesystem::remove(folder_ / left);
            }
        }
        ASSERT_NO_FATAL_FAILURE(ExpectOldOrWhole(Exit::CouldNot));
    });
}

TEST_P(WritingFaults, InterruptAtEachCallLeavesNoLitter)
{
    ForEachCall([this](const std::string& name, std::uint64_t nth) {
        const bool ended = EndedBy(SIGINT, name, nth) == SIGINT;
        ASSERT_NO_FATAL_FAILURE(ExpectOldOrWhole(ended ? Exit::CouldNot : Exit::Fine));
        if (name == "write" && GetParam().splitBytes == 0) {
            ASSERT_TRUE(ended);
            ASSERT_EQ(Out(), GetParam().replaces ? kOld : "");
        }
    });
}

TEST_P(WritingFaults, InterruptAtEachCallTellsWhichFilesAreWhole)
{
    options_.quiet = false;
    ForEachCall([this](const std::string& name, std::uint64_t nth) {
        const Corvane::File::Descriptor output(::memfd_create("output", MFD_CLOEXEC));
        EndedBy(SIGINT, name, nth, output.Get());
        std::array<char, 1000> bytes = {};
        ASSERT_NE(::pread(output.Get(), bytes.data(), bytes.size() - 1, 0), -1);
        const std::string printed = bytes.data();
        for (const std::string& file : folder_.Names()) {
            const bool isNew = ReadFile(folder_ / file) != kOld && !WritesPage();
            ASSERT_TRUE(file == "a" || (printed.find(file + ": ") != std::string::npos) == isNew) << file << printed;
        }
    });
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, WritingFaults,
                         testing::Values(Work{"Sound", Recover, false, false},
                                         Work{"SoundOverOld", Recover, false, true},
                                         Work{"DamagedOverOld", Recover, true, true},
                                         Work{"Parts", Copy, false, false, 160}, Work{"Rows", Import, false, true},
                                         Work{"PartsOfRows", Import, false, false, 120},
                                         Work{"Page", View, false, true}),
                         [](const auto& work) { return work.param.name; });

// Changes a file when the fresh one is opened for the proof.
class Proof : public support::WritingTest {
protected:
    Proof()
    {
        Put(sound_);
        support::WriteFile(out_, kOld);
    }

    void ExpectRefused(const std::function<void(const std::string& fresh)>& change,
                       support::WritingTest::Command command)
    {
        bool changed = false;
        SystemCalls calls;
        calls.OnEach("open", [&](const SystemCall& call) -> std::optional<std::int64_t> {
            const bool isFresh = call.path.find(".corvane.") != std::string::npos;
            if (isFresh && (call.flags & O_NONBLOCK) != 0 && !changed) {
                changed = true;
                change(call.path);
            }
            return std::nullopt;
        });
        EXPECT_EQ(Run(command), Exit::CouldNot);
        EXPECT_TRUE(changed);
        EXPECT_EQ(Out(), kOld);
        EXPECT_EQ(folder_.Names(), (support::Names{"a", "out"}));
    }

    // With this byte changed.
    static void Spoil(const std::string& path, std::size_t at)
    {
        std::string file = ReadFile(path);
        file[at] = static_cast<char>(file[at] ^ 1);
        std::ofstream(path, std::ios::binary | std::ios::in)
            .write(file.data(), static_cast<std::streamsize>(file.size()));
    }
};

TEST_F(Proof, RefusesEveryOtherByteOfAFreshFile)
{
    for (std::size_t at = 8; at < sound_.size(); at += 3) {
        ExpectRefused([at](const std::string& fresh) { Spoil(fresh, at); }, Recover);
        ExpectRefused([at](const std::string& fresh) { Spoil(fresh, at); }, Copy);
    }
}

TEST_F(Proof, RefusesAShorterFreshFile)
{
    ExpectRefused([&](const std::string& fresh) { std::filesystem::resize_file(fresh, sound_.size() - 1); }, Recover);
}

TEST_F(Proof, RefusesASourceThatHasChanged)
{
    const auto touch = [this](const std::string&) {
        std::filesystem::last_write_time(path_, std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    };
    ExpectRefused(touch, Recover);
    ExpectRefused(touch, Copy);
}

TEST_F(Proof, RefusesASourceWithOtherBytesThoughItsTimesAreTheOldOnes)
{
    const auto rewrite = [this](const std::string&) {
        const auto time = std::filesystem::last_write_time(path_);
        Spoil(path_, sound_.size() - 3);
        std::filesystem::last_write_time(path_, time);
    };
    ExpectRefused(rewrite, Recover);
    Put(sound_);
    ExpectRefused(rewrite, Copy);
}

TEST_F(Proof, RefusesANameThatSomebodyHasTakenMeanwhile)
{
    std::filesystem::remove(out_);
    options_.force = false;
    ExpectRefused([this](const std::string&) { support::WriteFile(out_, kOld); }, Recover);
}

}  // namespace
