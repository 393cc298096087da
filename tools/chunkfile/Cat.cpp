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

// Of CSV. A hostile file could have any number of names, of any length.
constexpr std::size_t kMostColumns = 10'000;
constexpr std::size_t kMostNameBytes = std::size_t{4} << 20U;

using VisitField = std::function<void(std::string_view name, std::string_view value)>;

void VisitFields(const Pellin::DataChunk& chunk, const VisitField& visit)
{
    if (!Glue::VisitFields(chunk, visit)) {
        throw std::runtime_error("this platform does not show its fields; --format raw writes its records");
    }
}

// The chosen fields of a record, in the order of their names. A field that the record lacks has no value.
class Chosen {
public:
    explicit Chosen(const std::vector<std::string>& names)
    {
        for (const std::string& name : names) {
            fields_.emplace_back(name, std::nullopt);
        }
    }

    const auto& Fields() const { return fields_; }

    void Read(const Pellin::DataChunk& chunk)
    {
        for (auto& [name, value] : fields_) {
            value.reset();
        }
        VisitFields(chunk, [this](std::string_view name, std::string_view value) {
            for (auto& field : fields_) {
                if (field.first == name) {
                    field.second.emplace(value);
                }
            }
        });
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> fields_;
};

// What the files of a call share.
struct Call {
    const Options& options;
    Terminal& terminal;
    UnmetFields unmet = UnmetFields(options);
    bool named = false;  // the first line of CSV is written
};

Exit PrintChosen(Call& call, const Input& input, const Print& print)
{
    return PrintSelected(call.options, input, call.terminal, [&](const FoundRecord& record) {
        print(record);
        call.unmet.Meet(record.chunk);
    });
}

Exit CatNdjson(Call& call, const Input& input)
{
    const Options& options = call.options;
    Terminal& terminal = call.terminal;
    Chosen chosen(options.fields);
    std::string line;
    const char* comma = "";
    const VisitField append = [&](std::string_view name, std::string_view value) {
        AppendJsonName(line.append(comma), name);
        AppendJsonValue(line += ':', value, !options.strings);
        comma = ",";
    };
    return PrintChosen(call, input, [&](const FoundRecord& record) {
        line = "{\"time\":";
        AppendJsonName(line, TimeText(record.chunk.GetTimePoint()));
        line += ",\"fields\":{";
        comma = "";
        if (options.fields.empty()) {
            VisitFields(record.chunk, append);
        } else {
            chosen.Read(record.chunk);
            for (const auto& [name, value] : chosen.Fields()) {
                if (value) {
                    append(name, *value);
                }
            }
        }
        terminal.WriteLine(line += "}}");
    });
}

// The names of all fields in the file, in the order of their bytes, with --scan also those after damage.
std::vector<std::string> AllNames(const Options& options, const Input& input)
{
    std::set<std::string, std::less<>> names;
    std::size_t bytes = 0;
    const auto add = [&](std::string_view name, std::string_view /*value*/) {
        if (const auto place = names.lower_bound(name); place == names.end() || *place != name) {
            names.emplace_hint(place, name);
            bytes += name.size();
        }
    };
    const auto visit = [&](const FoundRecord& record) {
        if (record.standing != Standing::Doubtful) {
            VisitFields(record.chunk, add);
        }
        if (names.size() > kMostColumns || bytes > kMostNameBytes) {
            throw std::runtime_error("more than 10000 fields, or 4 MiB of their names: choose some with --fields");
        }
        return true;
    };
    Walk walk(input, options.scan);
    if (!walk.Counted(visit).reason.empty() && options.scan) {
        walk.AfterEnd(visit);
    }
    return {names.begin(), names.end()};
}

// The first file's line of names is for all.
Exit CatCsv(Call& call, const Input& input)
{
    const Options& options = call.options;
    Terminal& terminal = call.terminal;
    Chosen chosen(options.fields.empty() ? AllNames(options, input) : options.fields);
    std::string line;
    const auto write = [&](const std::string& time, auto textOf) {
        line.clear();
        AppendCsv(line, time);
        for (const auto& field : chosen.Fields()) {
            AppendCsv(line += ',', textOf(field));
        }
        terminal.WriteLine(line, kCsvEnd);
    };
    if (!std::exchange(call.named, true)) {
        write("time", [](const auto& field) { return TextOrBase64(field.first); });
    }
    return PrintChosen(call, input, [&](const FoundRecord& record) {
        chosen.Read(record.chunk);
        write(TimeText(record.chunk.GetTimePoint()),
              [](const auto& field) { return field.second ? TextOrBase64(*field.second) : ""; });
    });
}

// The bytes of the records as they are in the file.
Exit CatRaw(Call& call, const Input& input)
{
    std::vector<unsigned char> bytes(65536);
    return PrintChosen(call, input, [&](const FoundRecord& record) {
        const std::uint64_t size = record.size;
        for (std::uint64_t done = 0; done < size;) {
            const std::size_t count =
                input.ReadAt(record.position + done, bytes.data(), std::min<std::uint64_t>(bytes.size(), size - done));
            if (count == 0) {
                throw std::runtime_error("byte " + std::to_string(record.position) + " (record " +
                                         std::to_string(record.index) + "): the file became shorter");
            }
            call.terminal.Write({reinterpret_cast<const char*>(bytes.data()), count});
            done += count;
        }
    });
}

void RefuseWrongUse(const Options& options, const Terminal& terminal)
{
    if (options.format == Format::Raw && terminal.IsTerminal()) {
        throw std::invalid_argument("raw records do not go to a terminal: redirect standard output");
    }
    if (options.format == Format::Raw && !options.fields.empty()) {
        throw std::invalid_argument("--fields has no meaning for --format raw");
    }
    if (options.format == Format::Csv && options.fields.empty() && options.paths.size() > 1) {
        throw std::invalid_argument("--format csv of several files needs --fields");
    }
}

}  // namespace

Exit Cat(const Options& options, Terminal& terminal)
{
    RefuseWrongUse(options, terminal);
    Call call = {options, terminal};
    const auto unlessRaw = options.format == Format::Csv ? CatCsv : CatNdjson;
    const auto print = options.format == Format::Raw ? CatRaw : unlessRaw;
    const Exit code = ForEachFile(options, terminal, [&](const Input& input) {
        const Exit printed = print(call, input);
        ReportChange(input, terminal);
        return printed;
    });
    call.unmet.Report(options, terminal);
    return code;
}

}  // namespace Corvane::FileTool
