// chunkfile cat: the fields of each record.
#include <algorithm>
#include <set>
#include <stdexcept>

#include "chunkfile/Glue.h"
#include "chunkfile/Json.h"
#include "chunkfile/Selection.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kMostColumns = 10'000;  // of CSV; a hostile file could name any number

using VisitField = std::function<void(std::string_view name, std::string_view value)>;

void VisitFields(const Pellin::DataChunk& chunk, const VisitField& visit)
{
    if (!Glue::VisitFields(chunk, visit)) {
        throw std::runtime_error("this platform does not show its fields; --format raw writes its records");
    }
}

// Values of the chosen fields, in the order of their names. A field that the record lacks has none.
class Chosen {
public:
    explicit Chosen(std::vector<std::string> names) : names_(std::move(names)), values_(names_.size()) {}

    void Read(const Pellin::DataChunk& chunk)
    {
        std::fill(values_.begin(), values_.end(), std::nullopt);
        VisitFields(chunk, [this](std::string_view name, std::string_view value) {
            for (std::size_t i = 0; i < names_.size(); ++i) {
                if (names_[i] == name) {
                    values_[i].emplace(value);
                }
            }
        });
    }

    const std::vector<std::string>& Names() const { return names_; }
    const std::vector<std::optional<std::string>>& Values() const { return values_; }

private:
    std::vector<std::string> names_;
    std::vector<std::optional<std::string>> values_;
};

void WriteLine(Terminal& terminal, const std::string& line)
{
    // A terminal gets no byte that could control it. JSON has none, but a locale may read UTF-8 as such.
    terminal.Write(terminal.IsTerminal() ? Terminal::Escaped(line) : line);
    terminal.Write("\n");
}

Exit CatNdjson(const Options& options, const Input& input, Terminal& terminal)
{
    Chosen chosen(options.fields);
    std::string line;
    const char* comma = "";
    const VisitField append = [&](std::string_view name, std::string_view value) {
        AppendJsonName(line.append(comma), name);
        AppendJsonValue(line += ':', value, !options.strings);
        comma = ",";
    };
    return PrintSelected(options, input, terminal, [&](const FoundRecord& record) {
        if (record.standing == Standing::Doubtful) {
            return;
        }
        line = "{\"time\":";
        AppendJsonName(line, TimeText(record.chunk.GetTimePoint()));
        line += ",\"fields\":{";
        comma = "";
        if (options.fields.empty()) {
            VisitFields(record.chunk, append);
        } else {
            chosen.Read(record.chunk);
            for (std::size_t i = 0; i < chosen.Names().size(); ++i) {
                if (chosen.Values()[i]) {
                    append(chosen.Names()[i], *chosen.Values()[i]);
                }
            }
        }
        WriteLine(terminal, line += "}}");
    });
}

// The names of all fields in the file, in the order of their bytes.
std::vector<std::string> AllNames(const Input& input)
{
    std::set<std::string, std::less<>> names;
    const auto add = [&](std::string_view name, std::string_view /*value*/) {
        if (const auto place = names.lower_bound(name); place == names.end() || *place != name) {
            names.emplace_hint(place, name);
        }
    };
    const auto visit = [&](const FoundRecord& record) {
        VisitFields(record.chunk, add);
        if (names.size() > kMostColumns) {
            throw std::runtime_error("more than 10000 fields: choose some with --fields");
        }
        return true;
    };
    Walk walk(input, true);
    if (!walk.Counted(visit).reason.empty()) {
        walk.AfterEnd(visit);
    }
    return {names.begin(), names.end()};
}

void WriteCsv(Terminal& terminal, const std::string& time, const std::vector<std::optional<std::string>>& values)
{
    std::string line;
    const auto append = [&](const std::string& text) {
        AppendCsv(line, terminal.IsTerminal() ? Terminal::Escaped(text) : text);
    };
    append(time);
    for (const auto& value : values) {
        append((line += ',', value ? TextOrBase64(*value) : ""));
    }
    terminal.Write(line += "\r\n");
}

// The first file's line of names is for all.
Exit CatCsv(const Options& options, const Input& input, Terminal& terminal, bool& named)
{
    Chosen chosen(options.fields.empty() ? AllNames(input) : options.fields);
    if (!std::exchange(named, true)) {
        WriteCsv(terminal, "time", {chosen.Names().begin(), chosen.Names().end()});
    }
    return PrintSelected(options, input, terminal, [&](const FoundRecord& record) {
        if (record.standing != Standing::Doubtful) {
            chosen.Read(record.chunk);
            WriteCsv(terminal, TimeText(record.chunk.GetTimePoint()), chosen.Values());
        }
    });
}

// The bytes of the records as they are in the file.
Exit CatRaw(const Options& options, const Input& input, Terminal& terminal)
{
    std::vector<unsigned char> bytes(65536);
    return PrintSelected(options, input, terminal, [&](const FoundRecord& record) {
        if (record.standing == Standing::Doubtful) {
            return;
        }
        const std::uint64_t size = record.size;
        for (std::uint64_t done = 0; done < size;) {
            const std::size_t count =
                input.ReadAt(record.position + done, bytes.data(), std::min<std::uint64_t>(bytes.size(), size - done));
            if (count == 0) {
                throw std::runtime_error("the file became shorter");
            }
            terminal.Write({reinterpret_cast<const char*>(bytes.data()), count});
            done += count;
        }
    });
}

// Options that do not go together. Empty if all is well.
std::string WrongUse(const Options& options, const Terminal& terminal)
{
    if (options.format == Format::Raw && terminal.IsTerminal()) {
        return "raw records do not go to a terminal: redirect standard output";
    }
    if (options.format == Format::Raw && !options.fields.empty()) {
        return "--fields has no meaning for --format raw";
    }
    if (options.format == Format::Csv && options.fields.empty() && options.paths.size() > 1) {
        return "--format csv of several files needs --fields";
    }
    return {};
}

}  // namespace

Exit Cat(const Options& options, Terminal& terminal)
{
    const bool csv = options.format == Format::Csv;
    const bool raw = options.format == Format::Raw;
    if (const std::string wrong = WrongUse(options, terminal); !wrong.empty()) {
        terminal.Error(wrong);
        return Exit::Usage;
    }
    bool named = false;
    return ForEachFile(options, terminal, [&](const Input& input) {
        if (raw) {
            return CatRaw(options, input, terminal);
        }
        return csv ? CatCsv(options, input, terminal, named) : CatNdjson(options, input, terminal);
    });
}

}  // namespace Corvane::FileTool
