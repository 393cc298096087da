// chunkfile list: a line for each record.
#include <array>

#include "chunkfile/Glue.h"
#include "chunkfile/Json.h"
#include "chunkfile/Selection.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

constexpr std::array<const char*, 3> kStandings = {"counted", "found", "doubtful"};
constexpr std::array<const char*, 3> kMarks = {"", "+", "?"};  // of the same, before the index in a table

using Names = std::vector<std::string>;

// Nothing if the platform does not show its fields.
std::optional<Names> NamesOf(const Pellin::DataChunk& chunk)
{
    Names names;
    const bool shown =
        Glue::VisitFields(chunk, [&](std::string_view name, std::string_view /*value*/) { names.emplace_back(name); });
    return shown ? std::optional(names) : std::nullopt;
}

std::string Joined(const std::optional<Names>& names, const char* separator, std::string (*shown)(std::string_view))
{
    std::string joined;
    const char* before = "";
    for (const std::string& name : names.value_or(Names())) {
        joined.append(before).append(shown(name));
        before = separator;
    }
    return joined;
}

class Lines {
public:
    Lines(const Options& options, const Input& input, Terminal& terminal)
        : options_(options), terminal_(terminal), digits_(std::max<std::size_t>(8, std::to_string(input.Size()).size()))
    {
        if (options.format == Format::Csv) {
            terminal.Write("index,position,size,time,standing,fields\r\n");
        } else if (options.format == Format::Table) {
            const std::string line = Columns("index", "position", "size", "time") + "fields";
            terminal.Write(terminal.Styled(Terminal::Style::Bold, Fitted(line)) + "\n");
        }
    }

    void Print(const FoundRecord& record) const
    {
        const std::string time = TimeText(record.chunk.GetTimePoint());
        const auto names = NamesOf(record.chunk);
        const auto standing = static_cast<std::size_t>(record.standing);
        if (options_.format == Format::Json) {
            terminal_.WriteLine(JsonLine(record, time, names));
        } else if (options_.format == Format::Csv) {
            terminal_.WriteLine(
                CsvLine({std::to_string(record.index), std::to_string(record.position), std::to_string(record.size),
                         time, kStandings[standing], Joined(names, " ", TextOrBase64)}),
                kCsvEnd);
        } else {
            std::string line = Columns(kMarks[standing] + std::to_string(record.index), std::to_string(record.position),
                                       std::to_string(record.size), Terminal::Escaped(time)) +
                               Joined(names, ", ", Terminal::Escaped);
            line.erase(line.find_last_not_of(' ') + 1);
            terminal_.Write(Fitted(line) + "\n");
        }
    }

private:
    std::string Fitted(const std::string& line) const
    {
        return terminal_.IsTerminal() ? Terminal::Fitting(line, Terminal::Width()) : line;
    }

    std::string Columns(const std::string& index, const std::string& position, const std::string& size,
                        std::string time) const
    {
        std::string line;
        for (const std::string& text : {index, position, size}) {
            line.append(digits_ - std::min(digits_, text.size()), ' ').append(text).append("  ");
        }
        time.resize(std::max<std::size_t>(30, time.size()), ' ');
        return line + time + "  ";
    }

    static std::string JsonLine(const FoundRecord& record, const std::string& time, const std::optional<Names>& names)
    {
        JsonDocument line;
        line.Open('{').Member("schema", "chunkfile.list/1").Member("index", record.index);
        line.Member("position", record.position).Member("size", record.size).Member("time", time);
        line.Member("standing", kStandings[static_cast<std::size_t>(record.standing)]);
        if (names) {
            line.Open('[', "fields");
            for (const std::string& name : *names) {
                line.Element(name);
            }
            line.Close();
        }
        return line.Close().Line();
    }

    const Options& options_;
    Terminal& terminal_;
    std::size_t digits_;
};

}  // namespace

Exit List(const Options& options, Terminal& terminal)
{
    return ForEachFile(options, terminal, [&](const Input& input) {
        const Lines lines(options, input, terminal);
        const auto print = [&](const FoundRecord& record) { lines.Print(record); };
        const Exit code = PrintSelected(options, input, terminal, print, /* doubtful = */ true);
        ReportChange(input, terminal);
        return code;
    });
}

}  // namespace Corvane::FileTool
