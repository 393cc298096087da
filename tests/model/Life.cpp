#include "model/Life.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <memory>
#include <typeinfo>

#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "model/Choices.h"
#include "model/Damage.h"
#include "model/Model.h"
#include "support/LogCapture.h"

namespace model {

namespace {

namespace fs = std::filesystem;
using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;
using support::LogCapture;

constexpr std::size_t kObjects = 2;  // appenders, and readers, at a time
constexpr std::uint64_t kFirstRecord = 16;
constexpr std::array<const char*, 5> kFieldNames = {"", "a", "cpu", "p", "a longer name than others have"};

std::optional<std::string> Content(const std::string& path)
{
    if (!fs::is_regular_file(path)) {
        return std::nullopt;
    }
    std::string bytes(fs::file_size(path), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

std::string ModeOf(const std::string& path)
{
    return std::to_string(static_cast<unsigned>(fs::status(path).permissions()));
}

std::string Shown(const std::string& bytes)
{
    std::string text = std::to_string(bytes.size()) + " bytes:";
    for (std::size_t i = 0; i < std::min<std::size_t>(bytes.size(), 400); ++i) {
        constexpr const char* kDigits = "0123456789abcdef";
        const auto byte = static_cast<unsigned char>(bytes[i]);
        text += {' ', kDigits[byte / 16], kDigits[byte % 16]};
    }
    return text;
}

// The text with # in place of each number.
std::string WithoutNumbers(const std::string& text)
{
    std::string rest;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (!digit) {
            rest += c;
        } else if (rest.empty() || rest.back() != '#') {
            rest += '#';
        }
    }
    return rest;
}

const std::map<std::string, std::string>& FieldsOf(const DataChunk& chunk)
{
    return chunk.Fields();
}

const std::map<std::string, std::string>& FieldsOf(const Record& record)
{
    return record.GetFields();
}

template <typename Chunk>
std::string Describe(const Chunk& chunk)
{
    std::string text =
        std::to_string(chunk.GetTimePoint().Nanoseconds()) + ", " + std::to_string(chunk.GetSizeOnFile()) + " bytes";
    for (const auto& [name, value] : FieldsOf(chunk)) {
        text.append(", ").append(name).append("=").append(value);
    }
    return text;
}

// What the library, or the model, has of a life.
template <typename AppenderType, typename ReaderType, typename ChunkType>
struct Side {
    using Appender = AppenderType;
    using Reader = ReaderType;
    using Chunk = ChunkType;

    std::string folder;
    std::array<std::unique_ptr<Appender>, kObjects> appenders = {};
    std::array<std::unique_ptr<Reader>, kObjects> readers = {};
    Chunk chunk{TimePoint(7)};  // the one that was made or read last
};

// What a step gave: a result or an exception, and log entries.
struct Result {
    std::string text;
    std::vector<support::CapturedEntry> entries;
};

class Life {
public:
    Life(const std::string& folder, const std::string& choices, Outcome& outcome)
        : choices_(choices), outcome_(outcome), large_(choices_.OneIn(24))
    {
        library_.folder = folder + "/library";
        model_.folder = folder + "/model";
        fs::create_directory(library_.folder);
        fs::create_directory(model_.folder);
        InEach([](auto& /*side*/) {
            fs::create_directory("a folder");
            fs::create_symlink("b", "link");
        });
    }

    ~Life()
    {
        InEach([](auto& side) {
            side.appenders = {};
            side.readers = {};
        });
    }

    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    void Run()
    {
        while (!choices_.Ended() && outcome_.difference.empty()) {
            Step();
        }
        for (std::size_t i = 0; i < kObjects && outcome_.difference.empty(); ++i) {
            Destroy(i);
        }
    }

private:
    void Step()
    {
        using Action = void (Life::*)(std::size_t);
        static constexpr std::array<Action, 16> kActions = {
            &Life::Open,          &Life::Open,          &Life::Open,
            &Life::AppendSeveral, &Life::AppendSeveral, &Life::AppendSeveral,
            &Life::AppendSeveral, &Life::AppendSeveral, &Life::AppendWhatWasRead,
            &Life::Flush,         &Life::Destroy,       &Life::Destroy,
            &Life::DamageFile,    &Life::OpenReader,    &Life::ReadSomewhere,
            &Life::ChangeLevel};
        (this->*choices_.Of(kActions))(choices_.Below(kObjects));
    }

    void Open(std::size_t i)
    {
        const std::string name = Name();
        const bool reopen = choices_.Below(3) != 0;
        const std::uint64_t maxSize = MaxSize(name);
        Both("appender " + std::to_string(i) + ": " + name + (reopen ? ", reopen, " : ", ") + std::to_string(maxSize),
             [&](auto& side) {
                 using Appender = typename std::decay_t<decltype(side)>::Appender;
                 side.appenders[i] = std::make_unique<Appender>(name, reopen, maxSize);
                 return std::string();
             });
    }

    void AppendSeveral(std::size_t i)
    {
        if (library_.appenders[i] == nullptr) {
            Open(i);
            return;
        }
        for (std::size_t n = choices_.Below(4); n < 4 && outcome_.difference.empty(); ++n) {
            Make();
            AppendChunk(i);
        }
        if (choices_.OneIn(4)) {
            AskForTimePoints(i);
        }
    }

    void AppendWhatWasRead(std::size_t i)
    {
        i = library_.appenders[i] != nullptr ? i : kObjects - 1 - i;
        if (library_.appenders[i] != nullptr) {
            AppendChunk(i);
        }
    }

    void AppendChunk(std::size_t i)
    {
        InMemory("append to " + std::to_string(i) + ": time " +
                     std::to_string(library_.chunk.GetTimePoint().Nanoseconds()) + ", " +
                     std::to_string(library_.chunk.GetSizeOnFile()) + " bytes",
                 [&](auto& side) { return std::to_string(int{side.appenders[i]->Append(side.chunk)}); });
    }

    void AskForTimePoints(std::size_t i)
    {
        InMemory("time points of " + std::to_string(i), [&](auto& side) {
            std::string text = side.appenders[i]->GetFilename() + ":";
            for (const TimePoint& timePoint : side.appenders[i]->GetTimePoints()) {
                text += " " + std::to_string(timePoint.Nanoseconds());
            }
            return text;
        });
    }

    void Flush(std::size_t i)
    {
        if (library_.appenders[i] == nullptr) {
            return;
        }
        Limited("flush " + std::to_string(i), [&](auto& side) { side.appenders[i]->Flush(); });
    }

    void Destroy(std::size_t i)
    {
        if (library_.appenders[i] == nullptr) {
            return;
        }
        if (choices_.OneIn(2)) {
            AskForTimePoints(i);
        }
        Limited("destroy " + std::to_string(i), [&](auto& side) { side.appenders[i].reset(); });
    }

    void OpenReader(std::size_t i)
    {
        const std::string name = Name();
        Both("reader " + std::to_string(i) + ": " + name, [&](auto& side) {
            using Reader = typename std::decay_t<decltype(side)>::Reader;
            side.readers[i] = std::make_unique<Reader>(name);
            return side.readers[i]->GetFilename();
        });
        if (library_.readers[i] != nullptr && choices_.Below(4) != 0) {
            ReadAll(i);
        }
    }

    void ReadAll(std::size_t i)
    {
        if (library_.readers[i] == nullptr) {
            OpenReader(i);
            return;
        }
        InMemory("header of " + std::to_string(i), [&](auto& side) {
            return std::to_string(side.readers[i]->GetVersion()) + " " +
                   std::to_string(side.readers[i]->GetNumberOfChunks());
        });
        std::uint64_t position = kFirstRecord;
        for (int n = 0; n < 20; ++n) {
            const std::uint64_t size = Read(i, position);
            if (choices_.OneIn(4)) {
                AppendWhatWasRead(choices_.Below(kObjects));
            }
            if (size == 0 || !outcome_.difference.empty()) {
                return;
            }
            if (choices_.OneIn(6)) {
                ReadSomewhere(i);
                return;
            }
            position += size;
        }
    }

    void ReadSomewhere(std::size_t i)
    {
        if (library_.readers[i] == nullptr) {
            return;
        }
        if (model_.readers[i]->Stands() != 0 && choices_.OneIn(2)) {
            Read(i, UINT64_MAX - choices_.Below(1000));
        } else {
            Read(i, choices_.Below(400));
        }
    }

    // Both forms, in either order. Returns the record's size as the model sees it.
    std::uint64_t Read(std::size_t i, std::uint64_t position)
    {
        const auto names = choices_.Subset<std::set<std::string>>(kFieldNames);
        const std::size_t form = choices_.Below(2);
        std::uint64_t size = 0;
        InMemory("read " + std::to_string(i) + " at " + std::to_string(position) + (form == 0 ? " by names" : ""),
                 [&](auto& side) {
                     size = form == 0 ? side.readers[i]->GetChunk(side.chunk, position, names)
                                      : side.readers[i]->GetChunk(side.chunk, position);
                     return std::to_string(size) + ": " + Describe(side.chunk);
                 });
        return size;
    }

    void DamageFile(std::size_t /*i*/)
    {
        const std::string name = choices_.Below(4) == 0 ? "b" : "a";
        std::string what;
        const std::string before = Content(library_.folder + "/" + name).value_or("");
        const std::optional<std::string> after = Damaged(before, old_, choices_, what);
        if (choices_.OneIn(2)) {
            old_ = before;
        }
        Both(what + " " + name, [&](auto& /*side*/) {
            if (after.has_value()) {
                // Not truncated first: ext4 would then wait for the disk when the file is closed.
                std::ofstream(name, std::ios::binary | std::ios::app).close();
                std::fstream(name, std::ios::binary | std::ios::in | std::ios::out) << *after;
                fs::resize_file(name, after->size());
            } else {
                fs::remove(name);
            }
            return std::string();
        });
        if (choices_.OneIn(2)) {
            OpenReader(choices_.Below(kObjects));
        }
    }

    void ChangeLevel(std::size_t /*i*/)
    {
        constexpr std::array<std::int32_t, 10> kLevels = {0, 10, 11, 20, 21, 40, 41, 50, 51, INT32_MAX};
        const std::int32_t level = choices_.OneIn(2) ? 0 : choices_.Of(kLevels);
        outcome_.steps += "level " + std::to_string(level) + "\n";
        LogCapture::SetLevel(level);
    }

    std::string Name() { return choices_.Of(std::array{"a", "a", "a", "a", "b", "link", "a folder", "no folder/a"}); }

    std::uint64_t MaxSize(const std::string& name)
    {
        const std::uint64_t length = Content(library_.folder + "/" + name).value_or("").size();
        switch (choices_.Below(8)) {
            case 0:
                return choices_.Below(18);
            case 1:
                return kFirstRecord + choices_.Below(256);
            case 2:
            case 3:
                return length + choices_.Below(3) - (length == 0 ? 0 : 1);
            case 4:
                return (large_ ? std::uint64_t{1} << 21U : 1024U) + choices_.Below(4096);
            case 5:
                return length + choices_.Below(large_ ? 4'000'000 : 500);
            default:
                return 0;
        }
    }

    // The chunk that both sides append next.
    void Make()
    {
        constexpr std::array kTimes = {INT64_MIN, INT64_MIN + 1, std::int64_t{-1}, INT64_MAX};
        const std::size_t kind = choices_.Below(8);
        std::int64_t time = kind <= 3 ? static_cast<std::int64_t>(choices_.Below(16)) : ++latest_;
        if (kind == 0) {
            time = choices_.Of(kTimes);
        }
        const auto names = choices_.Subset<std::vector<std::string>>(kFieldNames);
        library_.chunk = DataChunk(TimePoint(time));
        model_.chunk = Record(TimePoint(time));
        for (const std::string& name : names) {
            const std::string value = Value();
            library_.chunk.Set(name, value);
            model_.chunk.Set(name, value);
        }
    }

    std::string Value()
    {
        constexpr std::array kSizes = {0, 0, 1, 3, 17, 60, 200, 1000};
        constexpr std::array kLargeSizes = {0, 17, 5000, 70'000, 200'000, 300'000};
        const int size = large_ ? choices_.Of(kLargeSizes) : choices_.Of(kSizes);
        return std::string(static_cast<std::size_t>(size), choices_.Of(std::array{'\0', 'v', 'w'}));
    }

    // A step during which files may, sometimes, not grow past a length: writes become short, or fail.
    template <typename Action>
    void Limited(const std::string& step, Action action)
    {
        rlimit limit = {};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit before = limit;
        if (choices_.OneIn(6)) {
            limit.rlim_cur = choices_.Below(600);
        }
        Both(step + (limit.rlim_cur == before.rlim_cur ? "" : ", at most " + std::to_string(limit.rlim_cur) + " bytes"),
             [&](auto& side) {
                 ::setrlimit(RLIMIT_FSIZE, &limit);
                 action(side);
                 ::setrlimit(RLIMIT_FSIZE, &before);
                 return std::string();
             });
    }

    template <typename Action>
    void InEach(Action action)
    {
        fs::current_path(library_.folder);
        action(library_);
        fs::current_path(model_.folder);
        action(model_);
    }

    template <typename Action>
    void Both(const std::string& step, Action action)
    {
        InMemory(step, action);
        CompareFiles();
    }

    // A step that touches no file, which is checked now and then.
    template <typename Action>
    void InMemory(const std::string& step, Action action)
    {
        outcome_.steps += step + "\n";
        std::vector<Result> results;
        InEach([&](auto& side) { results.push_back(Observed([&] { return action(side); })); });
        Compare("result", results[0].text, results[1].text);
        const std::size_t entries = std::max(results[0].entries.size(), results[1].entries.size());
        for (std::size_t i = 0; i < entries; ++i) {
            Compare("log entry", Entry(results[0], i), Entry(results[1], i));
        }
        if (choices_.OneIn(16)) {
            CompareFiles();
        }
    }

    template <typename Action>
    Result Observed(Action action)
    {
        Result result;
        log_.Clear();
        try {
            result.text = action();
        } catch (const std::exception& exception) {
            result.text = std::string(typeid(exception).name()) + ": " + exception.what();
            outcome_.texts.insert(WithoutNumbers(exception.what()));
        }
        result.entries = log_.Entries();
        return result;
    }

    std::string Entry(const Result& result, std::size_t i)
    {
        if (i >= result.entries.size()) {
            return "none";
        }
        const support::CapturedEntry& entry = result.entries[i];
        outcome_.texts.insert(WithoutNumbers(std::to_string(entry.level) + " " + entry.message));
        return std::to_string(entry.level) + " " + entry.logger + " " + entry.message;
    }

    void CompareFiles()
    {
        for (const char* const name : {"/a", "/b"}) {
            const auto library = Content(library_.folder + name);
            const auto model = Content(model_.folder + name);
            if (library != model) {
                Compare(name + 1, library ? Shown(*library) : "absent", model ? Shown(*model) : "absent");
            }
            Compare("mode", ModeOf(library_.folder + name), ModeOf(model_.folder + name));
        }
    }

    void Compare(const std::string& what, const std::string& library, const std::string& model)
    {
        if (library != model && outcome_.difference.empty()) {
            outcome_.difference = what + "\n  library: " + library + "\n  model:   " + model;
        }
    }

    Choices choices_;
    Outcome& outcome_;
    bool large_;
    LogCapture log_;
    Side<Corvane::File::DataChunkFileAppender, Corvane::File::DataChunkFileReader, DataChunk> library_;
    Side<Appender, Reader, Record> model_;
    std::string old_;          // what a file once held
    std::int64_t latest_ = 0;  // the time of the latest chunk in order
};

}  // namespace

Outcome Live(const std::string& folder, const std::string& choices)
{
    std::signal(SIGXFSZ, SIG_IGN);
    const fs::path before = fs::current_path();
    Outcome outcome;
    {
        Life life(folder, choices, outcome);
        life.Run();
    }
    fs::current_path(before);
    for (const char* const side : {"/library", "/model"}) {
        fs::remove_all(folder + side);
    }
    return outcome;
}

}  // namespace model
