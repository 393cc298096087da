#define FUSE_USE_VERSION 31

#include <fuse3/fuse.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <thread>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"
#include "support/LogCapture.h"

namespace {

using Corvane::File::DataChunkFileReader;
using Corvane::File::kHeaderSize;
using support::ChunkOfSize;
using support::DataChunk;
using support::Lines;

constexpr std::uint64_t kSize = 600'000;  // bytes of the one file, "a"

// The file system's memory, shared by the process that serves it and the test.
struct Disk {
    unsigned char bytes[kSize];
    std::atomic<std::uint64_t> claimedSize{kSize};
    std::atomic<std::uint64_t> badFrom{kSize};  // reads of [badFrom, badTo) fail
    std::atomic<std::uint64_t> badTo{kSize};
    std::atomic<std::uint64_t> full{kSize};  // writes past this position fail
    std::atomic<bool> direct{false};         // no page cache: each read() is one request
    std::atomic<int> openedForWriting{0};
};

Disk* disk = nullptr;

// Limits a request's size, so that an image takes several and one in the middle can be refused.
void* Start(fuse_conn_info* connection, fuse_config* /*configuration*/)
{
    connection->max_write = 65536;
    return nullptr;
}

int GetAttributes(const char* path, struct stat* status, fuse_file_info* /*info*/)
{
    const bool isRoot = std::strcmp(path, "/") == 0;
    if (!isRoot && std::strcmp(path, "/a") != 0) {
        return -ENOENT;
    }
    status->st_uid = ::geteuid();
    status->st_mode = isRoot ? S_IFDIR | 0755 : S_IFREG | 0644;
    status->st_nlink = 1;
    status->st_size = isRoot ? 0 : static_cast<off_t>(disk->claimedSize);
    return 0;
}

int Open(const char* /*path*/, fuse_file_info* info)
{
    info->direct_io = disk->direct ? 1 : 0;
    disk->openedForWriting += (info->flags & O_ACCMODE) == O_RDONLY ? 0 : 1;
    return 0;
}

// The whole request fails: the page cache would take a short answer for the end of the file.
int Read(const char* /*path*/, char* buffer, std::size_t size, off_t offset, fuse_file_info* /*info*/)
{
    const auto from = std::min(static_cast<std::uint64_t>(offset), kSize);
    std::uint64_t to = std::min(from + size, kSize);
    if (from < disk->badTo && to > disk->badFrom) {
        if (from >= disk->badFrom || !disk->direct) {
            return -EIO;
        }
        to = disk->badFrom;
    }
    std::copy(disk->bytes + from, disk->bytes + to, buffer);
    return static_cast<int>(to - from);
}

int Write(const char* /*path*/, const char* buffer, std::size_t size, off_t offset, fuse_file_info* /*info*/)
{
    const auto from = static_cast<std::uint64_t>(offset);
    if (from + size > disk->full) {
        return -ENOSPC;
    }
    std::copy(buffer, buffer + size, disk->bytes + from);
    return static_cast<int>(size);
}

// Serves until it is unmounted.
void Serve(const std::string& folder)
{
    fuse_operations operations = {};
    operations.init = Start;
    operations.getattr = GetAttributes;
    operations.open = Open;
    operations.read = Read;
    operations.write = Write;
    char name[] = "hostile";
    char* arguments[] = {name, nullptr};
    fuse_args none = {1, arguments, 0};
    fuse* const served = ::fuse_new(&none, &operations, sizeof operations, nullptr);
    if (served != nullptr && ::fuse_mount(served, folder.c_str()) == 0) {
        ::fuse_loop(served);
    }
    ::_exit(0);
}

// A chunk file on a file system that fails at chosen positions, with and without the page cache.
class HostileFileSystem : public support::ChunkFileTest, public testing::WithParamInterface<bool> {
protected:
    HostileFileSystem() { path_ = mountPoint_ + "/a"; }

    void SetUp() override
    {
        if (::access("/dev/fuse", R_OK | W_OK) != 0) {
            GTEST_SKIP() << "cannot use /dev/fuse: " << std::generic_category().message(errno);
        }
        std::filesystem::create_directory(mountPoint_);
        disk = new (::mmap(nullptr, sizeof(Disk), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Disk;
        disk->direct = GetParam();
        for (std::int64_t time = 0; time < 50; ++time) {
            chunks_.push_back(ChunkOfSize(time, 5'000 + static_cast<std::uint64_t>(time) * 200));
        }
        file_ = support::FileOf(chunks_);
        file_.resize(kSize);
        std::copy(file_.begin(), file_.end(), disk->bytes);
        server_ = ::fork();
        if (server_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            Serve(mountPoint_);
        }
        for (int i = 0; i < 500 && !std::filesystem::exists(path_); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (!std::filesystem::exists(path_)) {
            GTEST_SKIP() << "cannot mount by /dev/fuse here";
        }
    }

    void TearDown() override
    {
        if (server_ > 0) {
            ::umount2(mountPoint_.c_str(), MNT_DETACH);
            ::kill(server_, SIGTERM);
            ::waitpid(server_, nullptr, 0);
            ::munmap(disk, sizeof(Disk));
        }
    }

    static std::string Stored() { return {disk->bytes, disk->bytes + kSize}; }

    support::LogCapture log_{50};
    std::string mountPoint_ = folder_ / "mounted";
    std::vector<DataChunk> chunks_;
    std::string file_;
    pid_t server_ = -1;
};

TEST_P(HostileFileSystem, ReadErrorInTheMiddleNeverMakesAFileLookShorter)
{
    disk->badFrom = 200'704;
    disk->badTo = 204'800;
    for (const std::uint64_t maxSize : {support::kUnbounded, kSize}) {
        EXPECT_EQ(ErrorOfReopening(maxSize), TooShort(0));
    }
    EXPECT_EQ(disk->openedForWriting, 0);
    EXPECT_TRUE(Stored() == file_);
}

TEST_P(HostileFileSystem, ReaderGivesAllChunksOutsideAReadError)
{
    disk->badFrom = 200'704;  // a multiple of the page size
    disk->badTo = 204'800;
    DataChunkFileReader reader(path_);
    std::uint64_t position = kHeaderSize;
    int bad = 0;
    for (const DataChunk& chunk : chunks_) {
        const std::uint64_t end = position + chunk.GetSizeOnFile();
        DataChunk found;
        const bool touched = position < disk->badTo && end > disk->badFrom;
        bad += touched ? 1 : 0;
        EXPECT_EQ(reader.GetChunk(found, position) == 0, touched) << position;
        EXPECT_TRUE(touched || support::RecordOf(found) == support::RecordOf(chunk));
        position = end;
    }
    EXPECT_GE(bad, 1);
}

TEST_P(HostileFileSystem, DiskThatIsFullInTheMiddleHoldsWhatItAcceptedAndIsLogged)
{
    disk->full = 300'000;
    {
        auto appender = NewFile(kSize);
        EXPECT_TRUE(appender.Append(ChunkOfSize(1, 400'000)));
    }
    std::string image = support::FileOf({ChunkOfSize(1, 400'000)});
    image.resize(kSize);
    ASSERT_EQ(log_.Lines().size(), 1U);
    const std::string line = log_.Lines().at(0);
    const std::string text = "50 Could not write 600000B. Wrote instead: ";
    ASSERT_EQ(line.substr(0, text.size()), text);
    const std::uint64_t accepted = std::stoull(line.substr(text.size()));
    ASSERT_LE(accepted, 300'000U);
    EXPECT_GE(accepted, 65536U);
    EXPECT_TRUE(Stored() == image.substr(0, accepted) + file_.substr(accepted)) << line;
}

// Without the page cache, which would believe a wrong size.
using UncachedHostileFileSystem = HostileFileSystem;

TEST_P(UncachedHostileFileSystem, WrongSizeFromTheFileSystemDoesNoHarm)
{
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{100}, 10 * kSize}) {
        disk->claimedSize = size;
        EXPECT_EQ(Reopened(support::kUnbounded).GetTimePoints().size(), chunks_.size()) << size;
        EXPECT_TRUE(Stored() == file_) << size;
    }
}

constexpr auto kName = [](const auto& parameter) { return parameter.param ? "Direct" : "Cached"; };
INSTANTIATE_TEST_SUITE_P(Reads, HostileFileSystem, testing::Bool(), kName);
INSTANTIATE_TEST_SUITE_P(Reads, UncachedHostileFileSystem, testing::Values(true), kName);

}  // namespace
