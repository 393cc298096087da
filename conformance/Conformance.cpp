// The rules that a platform's chunk, time point and logging keep. Each rule runs in a process of its own, because a
// platform that breaks it may crash or block.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "Glue.h"
#include "tarn/cv/logging/Logger.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::Conformance {

namespace {

using Pellin::DataChunk;
using tarn::cv::logging::Logger;
using tarn::cv::logging::LoggingManager;

constexpr int kChunks = 12;
constexpr unsigned kTimeLimit = 60;  // seconds, for one rule
constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kTail = std::size_t{1} << 32U;  // what the library keeps readable after a file's image

using Bytes = std::vector<unsigned char>;

// What is wrong; empty if nothing is.
using Problem = std::string;

template <typename... Parts>
Problem Join(const Parts&... parts)
{
    std::ostringstream stream;
    (stream << ... << parts);
    return stream.str();
}

Problem CheckGuarded(const std::function<Problem()>& check)
{
    try {
        return check();
    } catch (const std::exception& error) {
        return Join("an exception: ", error.what());
    }
}

// Runs the check in a child process. Returns what it finds, or how the child ended.
Problem CheckInChild(const std::function<Problem()>& check)
{
    std::array<int, 2> ends = {};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(kTimeLimit);
        const Problem problem = CheckGuarded(check).substr(0, kPageSize);
        ::_exit(::write(ends[1], problem.data(), problem.size()) == static_cast<ssize_t>(problem.size()) ? 0 : 1);
    }
    ::close(ends[1]);
    Problem problem(kPageSize, '\0');
    problem.resize(static_cast<std::size_t>(std::max<ssize_t>(::read(ends[0], problem.data(), problem.size()), 0)));
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        return Join("the process ended by signal ", WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? problem : Join("the process ended with code ", WEXITSTATUS(status));
}

void ExpectKept(const char* rule, const std::function<Problem()>& check)
{
    EXPECT_EQ(CheckInChild(check), "") << "The platform breaks the rule: " << rule;
}

Problem CheckEveryChunk(const std::function<Problem(const DataChunk&)>& check)
{
    for (int number = 0; number < kChunks; ++number) {
        const Problem problem = check(*MakeChunk(number));
        if (!problem.empty()) {
            return Join("chunk ", number, ": ", problem);
        }
    }
    return {};
}

// Memory between two pages that cannot be touched. With a tail, zeros to read follow it, as after the library's image.
class Memory {
public:
    Memory(std::size_t size, std::size_t tail)
        : size_((size + kPageSize - 1) / kPageSize * kPageSize), mapped_(kPageSize + size_ + std::max(tail, kPageSize))
    {
        void* const memory = ::mmap(nullptr, mapped_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::runtime_error("no memory");
        }
        memory_ = static_cast<unsigned char*>(memory);
        ::mprotect(memory_, kPageSize, PROT_NONE);
        ::mprotect(First(), size_, PROT_READ | PROT_WRITE);
        if (tail == 0) {
            ::mprotect(End(), kPageSize, PROT_NONE);
        }
    }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    ~Memory() { ::munmap(memory_, mapped_); }

    unsigned char* First() const { return memory_ + kPageSize; }
    unsigned char* End() const { return First() + size_; }

private:
    std::size_t size_;
    std::size_t mapped_;
    unsigned char* memory_ = nullptr;
};

// A file of these bytes, open at `position`.
class File {
public:
    explicit File(const Bytes& bytes, off_t position = 0) : fd_(::memfd_create("record", 0))
    {
        if (fd_ == -1 || ::write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("no file");
        }
        ::lseek(fd_, position, SEEK_SET);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { ::close(fd_); }

    int Get() const { return fd_; }

private:
    int fd_;
};

Bytes RecordOf(const DataChunk& chunk)
{
    Bytes bytes(chunk.GetSizeOnFile() + kPageSize);
    chunk.Write(bytes.data());
    bytes.resize(chunk.GetSizeOnFile());
    return bytes;
}

bool AreSamePoint(const DataChunk& left, const DataChunk& right)
{
    return !(left.GetTimePoint() < right.GetTimePoint()) && !(right.GetTimePoint() < left.GetTimePoint());
}

// Compares a chunk that ReadFrom has filled, with this result, with the one that was written.
Problem Compare(std::uint64_t result, const DataChunk& read, const DataChunk& written)
{
    if (result == 0) {
        return "ReadFrom returned 0";
    }
    if (read.GetSizeOnFile() != written.GetSizeOnFile()) {
        return Join("GetSizeOnFile returns ", read.GetSizeOnFile(), " instead of ", written.GetSizeOnFile());
    }
    if (!AreSamePoint(read, written)) {
        return "another time point";
    }
    return HaveSameContent(read, written) ? "" : "another content";
}

// Writes the chunk into memory that is filled with `fill`. A page of it lies before the record and one after.
Bytes WriteInto(const DataChunk& chunk, unsigned char fill)
{
    Bytes bytes(kPageSize + chunk.GetSizeOnFile() + kPageSize, fill);
    chunk.Write(bytes.data() + kPageSize);
    return bytes;
}

Problem CheckLength(const DataChunk& chunk)
{
    const std::uint64_t size = chunk.GetSizeOnFile();
    const Bytes ones = WriteInto(chunk, 0x01);
    const Bytes twos = WriteInto(chunk, 0x02);
    for (std::size_t at = 0; at < ones.size(); ++at) {
        const bool isWritten = ones[at] == twos[at];
        const bool isRecord = at >= kPageSize && at - kPageSize < size;
        if (isWritten != isRecord) {
            return Join(size, " bytes are announced, and byte ", static_cast<std::int64_t>(at) - 4096, " is ",
                        isWritten ? "written" : "not written");
        }
    }
    return {};
}

Problem LengthProblemUnlessThrown(const DataChunk& chunk)
{
    try {
        return CheckLength(chunk);
    } catch (const std::exception&) {
        return {};
    }
}

// A chunk that was read can be appended too: its Write must keep to the announced length, or throw.
Problem CheckWritingWhatWasRead(const DataChunk& chunk)
{
    const Bytes record = RecordOf(chunk);
    const std::pair<const char*, std::function<std::uint64_t(DataChunk&)>> ways[] = {
        {"from memory", [&](DataChunk& read) { return read.ReadFrom(record.data()); }},
        {"from a descriptor", [&](DataChunk& read) { return read.ReadFrom(File(record).Get()); }},
        {"with names", [&](DataChunk& read) { return read.ReadFrom(File(record).Get(), NamesOfEverything()); }},
        {"without names", [&](DataChunk& read) { return read.ReadFrom(File(record).Get(), {}); }},
    };
    for (const auto& [way, readFrom] : ways) {
        DataChunk read;
        if (readFrom(read) == 0) {
            continue;
        }
        const Problem problem = LengthProblemUnlessThrown(read);
        if (!problem.empty()) {
            return Join("read ", way, ": ", problem);
        }
    }
    return {};
}

Problem CheckGuards(const DataChunk& chunk)
{
    const Memory memory(chunk.GetSizeOnFile(), 0);
    chunk.Write(memory.First());
    chunk.Write(memory.End() - chunk.GetSizeOnFile());
    return {};
}

Problem CheckReadingFromMemory(const DataChunk& written)
{
    Bytes bytes = RecordOf(written);
    bytes.resize(bytes.size() + kPageSize, 0xff);  // as the next record follows
    DataChunk read;
    const std::uint64_t result = read.ReadFrom(bytes.data());
    return Compare(result, read, written);
}

Problem CheckReadingFromDescriptor(const DataChunk& written, bool withNames)
{
    Bytes bytes(16, 0xff);
    const Bytes record = RecordOf(written);
    bytes.insert(bytes.end(), record.begin(), record.end());
    bytes.resize(bytes.size() + kPageSize, 0xff);
    const File file(bytes, 16);
    DataChunk read;
    const std::uint64_t result = withNames ? read.ReadFrom(file.Get(), NamesOfEverything()) : read.ReadFrom(file.Get());
    return Compare(result, read, written);
}

// What a ReadFrom makes of some bytes: a chunk, or null if it refuses them. An exception is a refusal too.
std::unique_ptr<DataChunk> ReadOrNull(const std::function<std::uint64_t(DataChunk&)>& readFrom)
{
    auto chunk = std::make_unique<DataChunk>();
    try {
        return readFrom(*chunk) == 0 ? nullptr : std::move(chunk);
    } catch (const std::exception&) {
        return nullptr;
    }
}

// Damaged bytes, in a file and at `inMemory`, are refused in all ways if records check themselves.
Problem CheckDamaged(const Bytes& bytes, const unsigned char* inMemory)
{
    const auto memory = ReadOrNull([&](DataChunk& chunk) { return chunk.ReadFrom(inMemory); });
    const auto file = ReadOrNull([&](DataChunk& chunk) { return chunk.ReadFrom(File(bytes).Get()); });
    const auto names =
        ReadOrNull([&](DataChunk& chunk) { return chunk.ReadFrom(File(bytes).Get(), NamesOfEverything()); });
    if (!RecordsCheckThemselves() || (memory == nullptr && file == nullptr && names == nullptr)) {
        return {};
    }
    return Join("accepted", memory != nullptr ? " from memory" : "", file != nullptr ? " from a descriptor" : "",
                names != nullptr ? " with names" : "");
}

// Readers read from a descriptor, reopening reads from memory, and with little address space it asks the descriptor
// first. All must find the same records. A record is whole if it ends within these bytes, in a file and at `inMemory`.
Problem CheckAgreement(const Bytes& bytes, const unsigned char* inMemory)
{
    const auto memory = ReadOrNull([&](DataChunk& chunk) { return chunk.ReadFrom(inMemory); });
    const auto file = ReadOrNull([&](DataChunk& chunk) { return chunk.ReadFrom(File(bytes).Get()); });
    const auto isWhole = [&](const auto& chunk) { return chunk != nullptr && chunk->GetSizeOnFile() <= bytes.size(); };
    if (!isWhole(memory) && !isWhole(file)) {
        return {};
    }
    if (memory == nullptr || file == nullptr) {
        return memory == nullptr ? "accepted from a descriptor only" : "accepted from memory only";
    }
    return Compare(1, *file, *memory);
}

Problem CheckZeros()
{
    const Bytes bytes(kPageSize, 0);
    const Memory memory(bytes.size(), kTail);
    return CheckDamaged(bytes, memory.First());
}

// Searching a file after damage tries every byte, inside records too.
Problem CheckInside(const DataChunk& chunk)
{
    Bytes bytes = RecordOf(chunk);
    const std::size_t size = bytes.size();
    bytes.insert(bytes.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    bytes.resize(2 * size + kPageSize, 0);
    const Memory memory(bytes.size(), kTail);
    std::copy(bytes.begin(), bytes.end(), memory.First());
    for (std::size_t at = 1; at < size; ++at) {
        const Bytes rest(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end());
        const Problem problem = CheckAgreement(rest, memory.First() + at);
        if (!problem.empty()) {
            return Join("from byte ", at, " on: ", problem);
        }
    }
    return {};
}

using CheckBytes = Problem(const Bytes& bytes, const unsigned char* inMemory);

// Checks the record with each of its bytes changed to other values, one at a time. Zeros follow it.
Problem CheckEveryChange(const DataChunk& chunk, std::size_t zeros, CheckBytes* check)
{
    Bytes bytes = RecordOf(chunk);
    const std::size_t size = bytes.size();
    bytes.resize(size + zeros, 0);
    const Memory memory(bytes.size(), kTail);
    std::copy(bytes.begin(), bytes.end(), memory.First());
    for (std::size_t at = 0; at < size; ++at) {
        const unsigned char good = bytes[at];
        for (const int changed : {good ^ 0x01, good ^ 0x80, good ^ 0xff, 0x00, 0xff}) {
            memory.First()[at] = bytes[at] = static_cast<unsigned char>(changed);
            const Problem problem = changed == good ? "" : check(bytes, memory.First());
            if (!problem.empty()) {
                return Join("byte ", at, " changed from ", int{good}, " to ", changed, ": ", problem);
            }
        }
        memory.First()[at] = bytes[at] = good;
    }
    return {};
}

Problem CheckTruncation(const DataChunk& chunk)
{
    const Bytes bytes = RecordOf(chunk);
    const Memory memory(bytes.size(), kTail);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const Bytes truncated(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        std::copy(truncated.begin(), truncated.end(), memory.First());
        Bytes padded(truncated);
        padded.resize(bytes.size());
        const Problem problem = padded == bytes ? "" : CheckDamaged(truncated, memory.First());
        if (!problem.empty()) {
            return Join("truncated to ", size, " of ", bytes.size(), " bytes: ", problem);
        }
    }
    return {};
}

Problem CheckOrderOf(int left, int right)
{
    const auto one = MakeChunk(left);
    const auto other = MakeChunk(right);
    const Time::TimePoint point = one->GetTimePoint();
    const Time::TimePoint copy(point);  // NOLINT(performance-unnecessary-copy-initialization): the copy is tested
    if (copy < point || point < copy) {
        return Join("the copy of time point ", left, " is another point");
    }
    if ((copy < other->GetTimePoint()) != (left < right)) {
        return Join("time point ", left, left < right ? " is not less than " : " is less than ", right);
    }
    return {};
}

// The order of the chunks' numbers is strict and weak. So is an order that agrees with it for every pair.
Problem CheckOrder()
{
    for (int left = 0; left < kChunks; ++left) {
        for (int right = 0; right < kChunks; ++right) {
            const Problem problem = CheckOrderOf(left, right);
            if (!problem.empty()) {
                return problem;
            }
        }
    }
    return {};
}

// Logs an entry as the library does.
void LogAt(Logger* logger, std::int32_t level, const std::string& message)
{
    if (logger != nullptr && logger->GetCurrentLevel() <= level) {
        logger->Log(level, message, "Conformance.cpp", 1);
    }
}

std::ptrdiff_t CountLines(const std::vector<std::string>& lines, const std::string& message)
{
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& line) { return line.find(message) != std::string::npos; });
}

Problem CheckLevels()
{
    for (const std::int32_t level : {9, 10, 11, 20, 21, 40, 41, 50, 51}) {
        SetLevel("conformance", level);
        for (const std::int32_t entry : {10, 20, 40, 50}) {
            const auto lines = LinesOf([&] {
                LogAt(&LoggingManager::GetLogger("conformance"), entry, "by reference");
                LogAt(LoggingManager::GetLoggerPtr("conformance"), entry, "by pointer");
            });
            const std::ptrdiff_t expected = level <= entry ? 1 : 0;
            if (CountLines(lines, "by reference") != expected || CountLines(lines, "by pointer") != expected) {
                return Join("at level ", level, " an entry of level ", entry,
                            expected == 1 ? " is not logged once" : " is logged");
            }
        }
    }
    return {};
}

Problem CheckSwitchedOff()
{
    SetLevel("conformance", 10);
    SwitchOff("conformance");
    const auto lines = LinesOf([] {
        for (const std::int32_t level : {10, 20, 40, 50}) {
            LogAt(LoggingManager::GetLoggerPtr("conformance"), level, "by pointer");
            LogAt(&LoggingManager::GetLogger("conformance"), level, "by reference");
        }
    });
    return lines.empty() ? "" : Join(lines.size(), " entries are logged, the first is: ", lines.front());
}

Problem CheckKeptLoggers()
{
    SetLevel("conformance", 10);
    Logger& reference = LoggingManager::GetLogger("conformance");
    Logger* const pointer = LoggingManager::GetLoggerPtr("conformance");
    for (int i = 0; i < 1000; ++i) {
        LoggingManager::GetLogger(Join("conformance.", i));
    }
    const auto lines = LinesOf([&] {
        LogAt(&reference, 50, "by reference");
        LogAt(pointer, 50, "by pointer");
    });
    return lines.size() == 2 ? "" : "a logger that was kept no longer logs";
}

// One of the threads: looks up its own name and new ones, asks levels, and logs.
void UseLoggers(int thread, int rounds, std::atomic<int>& absent)
{
    const std::string name = Join("conformance.thread.", thread);
    for (int i = 0; i < rounds; ++i) {
        LoggingManager::GetLogger(Join(name, ".", i)).GetCurrentLevel();
        Logger* const logger = LoggingManager::GetLoggerPtr(name);
        absent += logger == nullptr ? 1 : 0;
        LogAt(logger, 50, Join("entry ", i, " of thread ", thread, "."));
        LogAt(&LoggingManager::GetLogger(name), 50, Join("second ", i, " of thread ", thread, "."));
    }
}

Problem CheckThreads()
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> absent = 0;
    for (int thread = 0; thread < kThreads; ++thread) {
        SetLevel(Join("conformance.thread.", thread), 10);
    }
    const auto lines = LinesOf([&] {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread, &absent] { UseLoggers(thread, kRounds, absent); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    if (absent != 0 || lines.size() != std::size_t{2} * kThreads * kRounds) {
        return Join(2 * kThreads * kRounds, " entries were logged, and ", lines.size(), " arrived; ", absent,
                    " lookups found no logger");
    }
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int i = 0; i < kRounds; ++i) {
            if (CountLines(lines, Join("entry ", i, " of thread ", thread, ".")) != 1) {
                return Join("entry ", i, " of thread ", thread, " did not arrive once and whole");
            }
        }
    }
    return {};
}

}  // namespace

// First, because other rules compare time points: a broken order must be named as such.
TEST(Conformance, OrderIsAStrictWeakOrdering)
{
    ExpectKept("the order of time points is a strict weak ordering", CheckOrder);
}

TEST(Conformance, RecordIsExactlyAsLongAsAnnounced)
{
    ExpectKept("a record is exactly as long as announced", [] { return CheckEveryChunk(CheckLength); });
}

TEST(Conformance, RecordOfAChunkThatWasReadIsAsLongAsAnnounced)
{
    ExpectKept("after a ReadFrom, Write writes as many bytes as announced or throws",
               [] { return CheckEveryChunk(CheckWritingWhatWasRead); });
}

TEST(Conformance, NothingBeforeOrAfterTheRecordIsWritten)
{
    ExpectKept("nothing before or after the record is written", [] { return CheckEveryChunk(CheckGuards); });
}

TEST(Conformance, RecordReadsBackFromMemory)
{
    ExpectKept("a record reads back from memory", [] { return CheckEveryChunk(CheckReadingFromMemory); });
}

TEST(Conformance, RecordReadsBackFromADescriptor)
{
    ExpectKept("a record reads back from a descriptor", [] {
        return CheckEveryChunk([](const DataChunk& chunk) { return CheckReadingFromDescriptor(chunk, false); });
    });
}

TEST(Conformance, RecordReadsBackFromADescriptorWithNames)
{
    ExpectKept("a record reads back from a descriptor with names", [] {
        return CheckEveryChunk([](const DataChunk& chunk) { return CheckReadingFromDescriptor(chunk, true); });
    });
}

TEST(Conformance, MemoryAndDescriptorAgreeOnAWholeRecord)
{
    // With zeros after it, a record whose size was changed may be whole again.
    ExpectKept("memory and descriptor agree on every record that is whole", [] {
        return CheckEveryChunk(
            [](const DataChunk& chunk) { return CheckEveryChange(chunk, kPageSize, CheckAgreement); });
    });
}

TEST(Conformance, BytesInsideARecordAreRefusedOrHarmless)
{
    ExpectKept("bytes inside a record are refused, or memory and descriptor agree",
               [] { return CheckEveryChunk(CheckInside); });
}

TEST(Conformance, ZeroBytesAreRefusedOrHarmless)
{
    ExpectKept("zero bytes are refused, or at least never crash", CheckZeros);
}

TEST(Conformance, DamagedBytesAreRefusedOrHarmless)
{
    ExpectKept("every damaged byte is refused, or at least never crashes", [] {
        return CheckEveryChunk([](const DataChunk& chunk) { return CheckEveryChange(chunk, 0, CheckDamaged); });
    });
}

TEST(Conformance, TruncatedRecordsAreRefusedOrHarmless)
{
    ExpectKept("every truncated record is refused, or at least never crashes",
               [] { return CheckEveryChunk(CheckTruncation); });
}

TEST(Conformance, LevelsAreInclusive)
{
    ExpectKept("an entry is logged if the logger's level is at most its own", CheckLevels);
}

TEST(Conformance, LoggerThatIsSwitchedOffIsSilent)
{
    ExpectKept("a logger that is switched off is null or silent", CheckSwitchedOff);
}

TEST(Conformance, LoggerStaysValid)
{
    ExpectKept("a logger stays valid, whatever is looked up later", CheckKeptLoggers);
}

TEST(Conformance, LoggersServeSeveralThreadsAtOnce)
{
    ExpectKept("several threads may look up and use loggers at once", CheckThreads);
}

}  // namespace Corvane::Conformance
