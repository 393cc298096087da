// Processes that have little of something: each opens files in a child process, and no file may crash it.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "Corvane/File/DataChunkFileScanner.h"
#include "ReferenceRecord.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using support::ChunkOfSize;
using support::FileOf;
using support::kUnbounded;
using support::Lines;
using support::ReadFile;

constexpr std::uint64_t kMegabyte = 1'000'000;
constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20U;

void SetLimit(__rlimit_resource resource, std::uint64_t limit)
{
    const rlimit both = {limit, limit};
    if (::setrlimit(resource, &both) != 0) {
        throw std::runtime_error("cannot set the limit");
    }
}

// Runs the function in a child process. Expects it to end without signal, exception or failed expectation.
void InChild(const std::function<void()>& function)
{
    EXPECT_EQ(support::RunInChild(function), 0);
}

// A memory cgroup of 64 MiB. Of version 1 or 2, whichever the system has; without root or cgroups there is none.
class SmallCgroup {
public:
    SmallCgroup()
    {
        for (const auto& [root, limit] :
             {std::pair("/sys/fs/cgroup/memory", "memory.limit_in_bytes"), std::pair("/sys/fs/cgroup", "memory.max")}) {
            folder_ = std::string(root) + "/chunkfiles-" + std::to_string(::getpid());
            std::error_code ignored;
            std::filesystem::create_directory(folder_, ignored);
            if (std::ofstream(folder_ + "/" + limit) << 64 * kMebibyte << std::flush) {
                return;
            }
            std::filesystem::remove(folder_, ignored);
        }
        folder_.clear();
    }
    SmallCgroup(const SmallCgroup&) = delete;
    SmallCgroup& operator=(const SmallCgroup&) = delete;
    ~SmallCgroup()
    {
        std::error_code ignored;
        std::filesystem::remove(folder_, ignored);
    }

    bool Exists() const { return !folder_.empty(); }

    // Moves this process there.
    void Enter() const
    {
        if (!(std::ofstream(folder_ + "/cgroup.procs") << ::getpid() << std::flush)) {
            throw std::runtime_error("cannot enter " + folder_);
        }
    }

private:
    std::string folder_;
};

// What a process has little of.
enum class Scarce {
    kAddressSpace64MiB,
    kAddressSpace256MiB,
    kAddressSpace512MiB,
    kAddressSpace1024MiB,
    kLockableMemory,
    kNothingButAllIsLocked,
    kMemoryOfCgroup
};

std::string NameOf(Scarce scarce)
{
    constexpr const char* kNames[] = {"AddressSpace64MiB",   "AddressSpace256MiB", "AddressSpace512MiB",
                                      "AddressSpace1024MiB", "LockableMemory",     "NothingButAllIsLocked",
                                      "MemoryOfCgroup"};
    return kNames[static_cast<std::size_t>(scarce)];
}

std::uint64_t LockedMemory()
{
    return support::FromStatus("VmLck:");
}

void Lock(int what)
{
    if (::mlockall(what) != 0) {
        throw std::runtime_error("cannot lock memory");
    }
}

// Limits this process for good.
void Suffer(Scarce scarce, const SmallCgroup& cgroup)
{
    switch (scarce) {
        case Scarce::kAddressSpace64MiB:
            SetLimit(RLIMIT_AS, 64 * kMebibyte);
            break;
        case Scarce::kAddressSpace256MiB:
            SetLimit(RLIMIT_AS, 256 * kMebibyte);
            break;
        case Scarce::kAddressSpace512MiB:
            SetLimit(RLIMIT_AS, 512 * kMebibyte);
            break;
        case Scarce::kAddressSpace1024MiB:
            SetLimit(RLIMIT_AS, 1024 * kMebibyte);
            break;
        case Scarce::kNothingButAllIsLocked:
            Lock(MCL_CURRENT | MCL_FUTURE);
            break;
        case Scarce::kMemoryOfCgroup:
            cgroup.Enter();
            break;
        case Scarce::kLockableMemory:
            support::BecomeUnprivileged();
            SetLimit(RLIMIT_MEMLOCK, 8 * kMebibyte);
            Lock(MCL_FUTURE);  // not what the process has now: that may be more than it may lock
            break;
    }
}

// A file, and the good chunks that a reopening finds in it.
struct File {
    std::string name;
    std::string bytes;
    std::uint64_t good;
    std::uint64_t count;  // in the header
};

// Files whose record claims to be longer than they are. Its head has a right checksum.
std::vector<File> Claims(std::uint64_t size)
{
    const std::string header = support::Word(2) + support::Word(1);
    const std::string claim = " that claims " + std::to_string(size) + " bytes";
    records::Record head({});
    head.size = size;
    records::Record directory = head;
    directory.directorySize = size - 40;
    records::Field field("p", "");
    field.valueSize = size - 40 - 17;
    records::Record value({field});
    value.size = size;
    return {{"a head" + claim, header + head.Bytes(), 0, 1},
            {"a directory" + claim, header + directory.Bytes(), 0, 1},
            {"a value" + claim, header + value.Bytes(), 0, 1}};
}

std::vector<File> FilesToReopen()
{
    const std::string sound = FileOf({ChunkOfSize(1, 100), ChunkOfSize(2, 10'000), ChunkOfSize(3, 100)});
    std::string damaged = sound;
    damaged[200] = static_cast<char>(damaged[200] ^ 1);
    const std::string cut = records::Record({{"p", std::string(20 * kMegabyte, 'x')}}).Bytes().substr(0, 40);
    std::vector<File> files = {{"a sound file", sound, 3, 3},
                               {"a damaged file", damaged, 1, 3},
                               {"a truncated file", sound.substr(0, sound.size() - 1), 2, 3},
                               {"a truncated record of 20 MB", support::Word(2) + support::Word(1) + cut, 0, 1}};
    for (const std::uint64_t size : {kMebibyte / 16, kMebibyte, 20 * kMebibyte, 300 * kMebibyte, 1024 * kMebibyte}) {
        const std::vector<File> claims = Claims(size);
        files.insert(files.end(), claims.begin(), claims.end());
    }
    return files;
}

struct Case {
    Scarce scarce;
    bool bounded;
};

void PrintTo(const Case& parameter, std::ostream* stream)
{
    *stream << NameOf(parameter.scarce) << (parameter.bounded ? "Bounded" : "Unbounded");
}

class Limits : public support::ChunkFileTest {
protected:
    void SetUp() override
    {
        if (support::kSanitized) {
            GTEST_SKIP() << "sanitizers need more address space and memory than these limits leave";
        }
        // An ordinary user shall open the files, too, and needs to own them for O_NOATIME.
        if (::geteuid() == 0) {
            ASSERT_EQ(::chown(folder_.Path().c_str(), 65534, 65534), 0);
        }
    }

    void WriteFile(const std::string& bytes) const
    {
        support::WriteFile(path_, bytes);
        if (::geteuid() == 0) {
            ASSERT_EQ(::chown(path_.c_str(), 65534, 65534), 0);
        }
    }

    support::LogCapture log_{40};
};

class ScarceMemory : public Limits, public testing::WithParamInterface<Case> {
protected:
    void SetUp() override
    {
        Limits::SetUp();
        if (GetParam().scarce >= Scarce::kLockableMemory && ::geteuid() != 0) {
            GTEST_SKIP() << "only root may lock all memory and make cgroups";
        }
        if (GetParam().scarce == Scarce::kMemoryOfCgroup && !cgroup_.Exists()) {
            GTEST_SKIP() << "no memory cgroup can be made here";
        }
    }

    static std::uint64_t MaxSize(std::uint64_t fileSize) { return GetParam().bounded ? fileSize : kUnbounded; }

    SmallCgroup cgroup_;
};

TEST_P(ScarceMemory, IsEnoughForANewFile)
{
    const auto chunk = ChunkOfSize(1, 10'000);
    std::string expected = FileOf({chunk}, GetParam().bounded ? 2 : 0);
    expected.resize(GetParam().bounded ? 4 * kMebibyte : expected.size());
    InChild([&] {
        Suffer(GetParam().scarce, cgroup_);
        WriteNewFile(MaxSize(expected.size()), {chunk});
    });
    EXPECT_TRUE(ReadFile(path_) == expected);
}

TEST_P(ScarceMemory, ReopensEachFileWithItsGoodChunksAndLeavesItUnchanged)
{
    for (const File& file : FilesToReopen()) {
        SCOPED_TRACE(file.name);
        WriteFile(file.bytes);
        InChild([&] {
            Suffer(GetParam().scarce, cgroup_);
            const auto appender = Reopened(MaxSize(file.bytes.size()));
            EXPECT_EQ(appender.GetTimePoints().size(), file.good);
            EXPECT_EQ(log_.Lines(), file.good == file.count
                                        ? Lines{}
                                        : Lines{NotGood(file.good, file.count, file.count - 1 - file.good)});
        });
        EXPECT_TRUE(ReadFile(path_) == file.bytes);
    }
}

// A walk is never bounded: the file's size is all that counts.
TEST_P(ScarceMemory, ScansEachFileUpToItsDamageAndSearchesOn)
{
    for (const File& file : FilesToReopen()) {
        SCOPED_TRACE(file.name);
        WriteFile(file.bytes);
        InChild([&] {
            Suffer(GetParam().scarce, cgroup_);
            Corvane::File::DataChunkFileScanner scanner(path_);
            while (scanner.Next()) {
            }
            EXPECT_EQ(scanner.GetNumberRead(), file.good);
            const bool isSearched = file.count > 1;  // a long claim would cost its length at each byte before
            scanner.GoTo(17);
            EXPECT_EQ(isSearched && scanner.FindNext(), isSearched);  // the second record, or the third
            EXPECT_EQ(isSearched && scanner.Next(), isSearched);
        });
    }
}

std::vector<Case> Cases()
{
    std::vector<Case> cases;
    for (auto scarce = Scarce::kAddressSpace64MiB; scarce <= Scarce::kMemoryOfCgroup;
         scarce = static_cast<Scarce>(static_cast<int>(scarce) + 1)) {
        cases.push_back({scarce, true});
        cases.push_back({scarce, false});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Each, ScarceMemory, testing::ValuesIn(Cases()), testing::PrintToStringParamName());

class ScarceAddressSpace : public Limits {};

// 300 MB in a process with the same and 16 MiB to spare. The values are holes in the file.
TEST_F(ScarceAddressSpace, NeedsAFilesSizeOnce)
{
    constexpr int kRecords = 300;
    records::Record record({{"p", std::string(kMegabyte, '\0')}});
    std::ofstream file(path_, std::ios::binary);
    file << support::Word(2) << support::Word(kRecords);
    for (record.time = 1; record.time <= kRecords; ++record.time) {
        file << record.Bytes().substr(0, record.size - kMegabyte);
        file.seekp(kMegabyte, std::ios::cur);
    }
    file.close();
    const std::uint64_t size = 16 + kRecords * record.size;
    std::filesystem::resize_file(path_, size);
    for (const std::uint64_t maxSize : {size, kUnbounded}) {
        InChild([&] {
            SetLimit(RLIMIT_AS, support::FromStatus("VmSize:") + size + 16 * kMebibyte);
            const auto* const appender = new support::DataChunkFileAppender(path_, true, maxSize);  // never writes
            EXPECT_EQ(appender->GetTimePoints().size(), kRecords);
        });
    }
}

TEST_F(ScarceAddressSpace, ImageThatDoesNotFitIsABadAllocationAndMakesNoFile)
{
    InChild([&] {
        SetLimit(RLIMIT_AS, 512 * kMebibyte);
        EXPECT_THROW(NewFile(1024 * kMebibyte), std::bad_alloc);
    });
    EXPECT_EQ(folder_.Names(), support::Names{});
}

class LockedMemoryOfRoot : public Limits {};

// A tail that is readable from the start would be populated: 4 GiB, for seconds.
TEST_F(LockedMemoryOfRoot, TailIsNotPopulated)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root may lock all memory";
    }
    WriteFile(FileOf({ChunkOfSize(1, 100)}));
    InChild([&] {
        Lock(MCL_CURRENT | MCL_FUTURE);
        const std::uint64_t locked = LockedMemory();
        const std::uint64_t before = support::FromStatus("VmRSS:");
        const std::clock_t start = std::clock();
        const std::uint64_t grown = support::PeakGrowth([&] {
            const auto appender = Reopened(kUnbounded);
            EXPECT_EQ(appender.GetTimePoints().size(), 1U);
            EXPECT_LE(LockedMemory(), locked + kMebibyte);
            EXPECT_LE(support::FromStatus("VmRSS:"), before + kMebibyte);
        });
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 2);
        EXPECT_LE(grown, kMebibyte);
    });
}

// The limit of a file's size, new and reopened.
class ScarceFileSize : public Limits, public testing::WithParamInterface<bool> {
protected:
    static constexpr std::uint64_t kSize = 8192;

    // Writes an image of kSize bytes where files may have `limit` bytes. A reopened file has 16 before.
    void Write(std::uint64_t limit) const
    {
        std::filesystem::remove(path_);
        if (GetParam()) {
            WriteFile(FileOf({}));
        }
        SetLimit(RLIMIT_FSIZE, limit);
        auto appender = support::DataChunkFileAppender(path_, GetParam(), kSize);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 100)));
    }
};

TEST_P(ScarceFileSize, IsLoggedIfTheSignalIsIgnored)
{
    const auto expectWritten = [this](std::uint64_t limit, const std::string& written) {
        InChild([&] {
            std::signal(SIGXFSZ, SIG_IGN);
            Write(limit);
            EXPECT_EQ(log_.Lines(), Lines{"50 Could not write 8192B. Wrote instead: " + written});
        });
    };
    expectWritten(4096, "4096");
    EXPECT_EQ(ReadFile(path_).size(), 4096U);
    expectWritten(0, "-1");
    EXPECT_EQ(ReadFile(path_), GetParam() ? FileOf({}) : "");
}

TEST_P(ScarceFileSize, EndsTheProcessIfTheSignalIsNotIgnored)
{
    EXPECT_EQ(support::RunInChild([&] { Write(0); }), 128 + SIGXFSZ);
}

INSTANTIATE_TEST_SUITE_P(Each, ScarceFileSize, testing::Bool(),
                         [](const auto& parameter) { return parameter.param ? "Reopened" : "New"; });

class NoDescriptors : public Limits {};

TEST_F(NoDescriptors, NewFileThrows)
{
    InChild([&] {
        SetLimit(RLIMIT_NOFILE, 0);
        EXPECT_EQ(ErrorOfNewFile(kUnbounded),
                  "DataChunkFileAppender could not open file " + path_ + ": Too many open files");
    });
    EXPECT_EQ(folder_.Names(), support::Names{});
}

TEST_F(NoDescriptors, ReopenedFileCountsAsEmpty)
{
    const std::string file = FileOf({ChunkOfSize(1, 100)});
    WriteFile(file);
    InChild([&] {
        SetLimit(RLIMIT_NOFILE, 0);
        EXPECT_EQ(ErrorOfReopening(kUnbounded), TooShort(0));
        EXPECT_EQ(ErrorOfReopening(1000), TooShort(0));
    });
    EXPECT_EQ(ReadFile(path_), file);
}

class SparseFile : public support::ChunkFileTest {};

TEST_F(SparseFile, IsRefusedForItsLengthWithoutReadingIt)
{
    constexpr std::uint64_t kSize = std::uint64_t{8} << 30U;
    support::WriteFile(path_, FileOf({ChunkOfSize(1, 100)}));
    std::error_code error;
    std::filesystem::resize_file(path_, kSize, error);
    if (error) {
        GTEST_SKIP() << "no sparse file of 8 GiB can be made here: " << error.message();
    }
    const std::clock_t start = std::clock();
    EXPECT_EQ(ErrorOfReopening(1000), TooLong(kSize, 1000));
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
}

}  // namespace
