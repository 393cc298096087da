// chunkfile list: a line for each record.
#include <array>

#include "chunkfile/Glue.h"
#include "chunkfile/Json.h"
#include "chunkfile/Selection.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

struct StandingText {
    const char* word;
    const char* mark;  // before the index in a table
};

StandingText TextOf(Standing standing)
{
    constexpr std::array<StandingText, 3> texts = {{{"counted", ""}, {"found", "+"}, {"doubtful", "?"}}};
    return texts[static_cast<std::size_t>(standing)];
}

// Nothing if the platform does not show its fields.
std::optional<std::vector<std::string>> NamesOf(const Pellin::DataChunk& chunk)
{
    std::vector<std::string> names;
    const bool shown =
        Glue::VisitFields(chunk, [&](std::string_view name, std::string_view /*value*/) { names.emplace_back(name); });
    return shown ? std::optional(names) : std::nullopt;
}

std::string RightAligned(const std::string& text, std::size_t width)
{
    return std::string(width - std::min(width, text.size()), ' ') + text;
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
        if (options_.format == Format::Json) {
            terminal_.Write(JsonLine(record, time, names));
        } else if (options_.format == Format::Csv) {
            terminal_.Write(CsvLineOf(record, time, names));
        } else {
            terminal_.Write(TableLine(record, time, names));
        }
    }

private:
    using Names = std::optional<std::vector<std::string>>;

    std::string Fitted(const std::string& line) const
    {
        return terminal_.IsTerminal() ? Terminal::Fitting(line, Terminal::Width()) : line;
    }

    std::string Columns(const std::string& index, const std::string& position, const std::string& size,
                        const std::string& time) const
    {
        const std::string padding(time.size() < 30 ? 30 - time.size() : 0, ' ');
        return RightAligned(index, digits_) + "  " + RightAligned(position, digits_) + "  " +
               RightAligned(size, digits_) + "  " + time + padding + "  ";
    }

    std::string TableLine(const FoundRecord& record, const std::string& time, const Names& names) const
    {
        const char* const mark = TextOf(record.standing).mark;
        std::string line = Columns(mark + std::to_string(record.index), std::to_string(record.position),
                                   std::to_string(record.size), Terminal::Escaped(time));
        const char* comma = "";
        for (const std::string& name : names.value_or(std::vector<std::string>())) {
            line += comma + Terminal::Escaped(name);
            comma = ", ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        return Fitted(line) + "\n";
    }

    static std::string JsonLine(const FoundRecord& record, const std::string& time, const Names& names)
    {
        JsonDocument line;
        line.Open('{').Member("schema", "chunkfile.list/1").Member("index", record.index);
        line.Member("position", record.position).Member("size", record.size);
        line.Member("time", time).Member("standing", TextOf(record.standing).word);
        if (names) {
            line.Open('[', "fields");
            for (const std::string& name : *names) {
                line.Element(name);
            }
            line.Close();
        }
        return line.Close().Line() + "\n";
    }

    static std::string CsvLineOf(const FoundRecord& record, const std::string& time, const Names& names)
    {
        std::string joined;
        for (const std::string& name : names.value_or(std::vector<std::string>())) {
            joined.append(joined.empty() ? "" : " ").append(TextOrBase64(name));
        }
        return CsvLine({std::to_string(record.index), std::to_string(record.position), std::to_string(record.size),
                        time, TextOf(record.standing).word, joined});
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
        return PrintSelected(options, input, terminal, [&](const FoundRecord& record) { lines.Print(record); });
    });
}

}  // namespace Corvane::FileTool
