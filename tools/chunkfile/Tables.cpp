#include "chunkfile/Tables.h"

#include <array>
#include <charconv>

#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

enum Bit : unsigned {
    kInfo = 1,
    kList = 2,
    kCat = 4,
    kCheck = 8,
    kAttr = 16,
    kRecover = 32,
    kCopy = 64,
    kImport = 128,
    kView = 256,
};
constexpr unsigned kBoth = kList | kCat;
constexpr unsigned kSlices = kBoth | kCopy;
constexpr unsigned kWriters = kRecover | kCopy | kImport;
constexpr unsigned kAll = kInfo | kList | kCat | kCheck | kAttr | kWriters | kView;

bool TakeFormat(Options& options, const std::string& text)
{
    for (const auto& [name, format] :
         {std::pair("table", Format::Table), std::pair("json", Format::Json), std::pair("csv", Format::Csv),
          std::pair("ndjson", Format::Ndjson), std::pair("raw", Format::Raw)}) {
        options.format = text == name ? format : options.format;
    }
    return true;
}

bool TakeColor(Options& options, const std::string& text)
{
    const When unlessNever = text == "never" ? When::Never : When::Auto;
    options.color = text == "always" ? When::Always : unlessNever;
    return true;
}

bool TakeNumber(std::uint64_t& number, const std::string& text)
{
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

bool TakeIndex(Options& options, const std::string& text)
{
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::string begin = text.substr(0, colon);
    const std::string end = text.substr(std::min(colon + 1, text.size()));
    return colon < text.size() && (begin.empty() || TakeNumber(options.index.begin, begin)) &&
           (end.empty() || TakeNumber(options.index.end, end));
}

bool TakeTime(std::optional<std::string>& time, const std::string& text)
{
    time = text;
    return ParseTimeBound(text).has_value();
}

// A comma after a backslash is part of a name.
bool TakeFields(Options& options, const std::string& text)
{
    options.fields.emplace_back();
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ',') {
            options.fields.emplace_back();
            continue;
        }
        i += text.compare(i, 2, "\\,") == 0 ? 1 : 0;
        options.fields.back() += text[i];
    }
    return true;
}

// A number of bytes, with a unit or without.
bool TakeSize(std::uint64_t& size, const std::string& text)
{
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    for (const auto& [unit, shift] :
         {std::pair("", 0U), std::pair("B", 0U), std::pair("KiB", 10U), std::pair("MiB", 20U), std::pair("GiB", 30U)}) {
        std::uint64_t number = 0;
        if (text.substr(digits) == unit && TakeNumber(number, text.substr(0, digits))) {
            size = number << shift;
            return size >> shift == number;
        }
    }
    return false;
}

// A number of bytes with its unit, or a span of time.
bool TakeSplit(Options& options, const std::string& text)
{
    if (text.ends_with('B')) {
        return TakeSize(options.splitBytes, text) && options.splitBytes != 0;
    }
    const auto span = ParseTimeBound("+" + text);
    options.splitNanoseconds = span ? static_cast<std::uint64_t>(span->nanoseconds) : 0;
    return options.splitNanoseconds != 0;
}

bool TakeOnEqualTime(Options& options, const std::string& text)
{
    const OnEqualTime unlessShift = text == "skip" ? OnEqualTime::Skip : OnEqualTime::Stop;
    options.onEqualTime = text == "shift" ? OnEqualTime::Shift : unlessShift;
    return true;
}

bool TakeTimeUnit(Options& options, const std::string& text)
{
    for (const auto& [name, nanoseconds] :
         {std::pair("s", 1'000'000'000), std::pair("ms", 1'000'000), std::pair("us", 1000), std::pair("ns", 1)}) {
        options.import.timeUnit = text == name ? nanoseconds : options.import.timeUnit;
    }
    options.import.timeUnitName = text;
    return true;
}

// Takes a switch.
template <bool Options::* Member>
bool Set(Options& options, const std::string& /*text*/)
{
    return options.*Member = true;
}

constexpr auto kCommands = std::to_array<CommandRow>({
    {kInfo, "info", "FILE...", Info, "What a file holds: records, times, sizes, space",
     "  chunkfile info a.chunks\n"
     "  chunkfile info --fields --format json *.chunks\n"},
    {kList, "list", "FILE", List, "A line for each record: index, position, size, time, names of fields",
     "  chunkfile list --limit 10 a.chunks\n"
     "  chunkfile list --from -10s --format csv a.chunks\n"},
    {kCat, "cat", "FILE...", Cat, "The fields of each record as JSON, a line each; as CSV; or raw records",
     "  chunkfile cat --fields loadavg,stat a.chunks | jq .fields\n"
     "  chunkfile cat --from +60s --to +2min --format csv a.chunks\n"
     "  chunkfile cat --index 5:6 --format raw a.chunks >record\n"
     "  ssh host cat a.chunks | chunkfile cat -\n"},
    {kCheck, "check", "PATH...", Check, "Judges files, and every regular file in folders",
     "  chunkfile check a.chunks\n"
     "  chunkfile check --max-size 4000000 a.chunks\n"
     "  chunkfile check -q --strict folder  # silent if all is well\n"},
    {kRecover, "recover", "FILE", Recover, "All records of a file, those after damage included, into a new file",
     "  chunkfile recover --dry-run damaged.chunks -o whole.chunks\n"
     "  chunkfile recover damaged.chunks -o whole.chunks\n"},
    {kCopy, "copy", "FILE...", Copy, "Slices, merges, splits and sorts files into a new one",
     "  chunkfile copy --from -10s a.chunks -o end.chunks\n"
     "  chunkfile copy --sort a.chunks b.chunks -o both.chunks\n"
     "  chunkfile copy --split 64MiB a.chunks -o part.chunks\n"},
    {kImport, "import", "[FILE]", Import, "Makes a chunk file of NDJSON, JSON or CSV",
     "  chunkfile import --time date rows.csv -o a.chunks\n"
     "  chunkfile import --time /meta/ts --time-unit ms --rows /data rows.json -o a.chunks\n"
     "  chunkfile cat a.chunks | jq -c 'select(.fields.load > 0.5)' | chunkfile import -o b.chunks\n"
     "  chunkfile cat --format csv a.chunks | chunkfile import --drop-time -o c.chunks\n"},
    {kAttr, "attr", nullptr, Attr, "Lists, gets, sets or removes extended attributes of any file",
     "  chunkfile attr list a.chunks\n"
     "  chunkfile attr set a.chunks user.__trackSize 836434\n"
     "  chunkfile attr get a.chunks user.__trackSize\n"},
    {kView, "view", "FILE", View, "A page that shows a file: map, times, sizes, numbers, findings",
     "  chunkfile view a.chunks -o a.html\n"
     "  ssh host cat a.chunks | chunkfile view - -o a.html --force\n"},
});

constexpr auto kOptions = std::to_array<OptionRow>({
    {kInfo, "--fields", nullptr, "Also the names of fields, and how often each comes", Set<&Options::countFields>},
    {kCat, "--fields", "A,B", "Only these fields, in this order; \\, is a comma in a name", TakeFields},
    {kCopy, "--fields", "A,B", "Only these fields; \\, is a comma in a name", TakeFields},
    {kSlices, "--from", "T", "From T on: RFC 3339, a date, @seconds, +10s from first, -10s from last",
     [](Options& options, const std::string& text) { return TakeTime(options.from, text); }},
    {kSlices, "--to", "T", "Up to T, which is left out",
     [](Options& options, const std::string& text) { return TakeTime(options.to, text); }},
    {kSlices, "--index", "A:B", "Records A to B - 1, counted from 0; A or B can be left out", TakeIndex},
    {kBoth, "--limit", "N", "At most N records of each file",
     [](Options& options, const std::string& text) { return TakeNumber(options.limit, text); }},
    {kBoth, "--scan", nullptr, "Go on after damage, with the good records there", Set<&Options::scan>},
    {kCat, "--strings", nullptr, "Values that are JSON come out as strings too", Set<&Options::strings>},
    {kCheck, "--max-size", "N", "Predict a reopening with this maximum size (4MiB): 3 if it throws",
     [](Options& options, const std::string& text) { return TakeSize(options.maxSize.emplace(), text); }},
    {kCheck, "--strict", nullptr, "Warnings count as findings: exit code 3", Set<&Options::strict>},
    {kRecover, "--doubtful", nullptr, "Also records that may be of an older file, or lie in a value",
     Set<&Options::doubtful>},
    {kCopy, "--sort", nullptr, "In the order of their times; without it in the order of the files",
     Set<&Options::sort>},
    {kWriters, "-o,--output", "OUT", "The new file; with --split, a number goes into its name",
     [](Options& options, const std::string& text) { return !(options.output = text).empty(); }, true},
    {kView, "-o,--output", "PAGE", "The new page",
     [](Options& options, const std::string& text) { return !(options.output = text).empty(); }, true},
    {kWriters, "--max-size", "N", "Its size, in bytes or 4MiB; without it or with 0: as long as its records",
     [](Options& options, const std::string& text) { return TakeSize(options.maxSize.emplace(), text); }},
    {kWriters, "--split", "SPAN", "Parts, each up to 64MiB, or 10min: a.0001.chunks and so on for a.chunks", TakeSplit},
    {kWriters, "--on-equal-time", "stop|skip|shift",
     "Leave a record out whose time is taken, or add 1 ns; default: stop", TakeOnEqualTime},
    {kWriters, "--dry-run", nullptr, "Only say what would be written", Set<&Options::dryRun>},
    {kWriters, "--force", nullptr, "Replace OUT if it exists", Set<&Options::force>},
    {kImport, "--time", "FIELD", "The field with the time, a JSON pointer to it, or now; default: time",
     [](Options& options, const std::string& text) { return !options.import.time.emplace(text).empty(); }},
    {kImport, "--time-unit", "s|ms|us|ns", "What times that are numbers count, since 1970", TakeTimeUnit},
    {kImport, "--drop-time", nullptr, "The time is no field of the chunk",
     [](Options& options, const std::string& /*text*/) { return options.import.dropTime = true; }},
    {kImport, "--rows", "POINTER", "The array of rows in a JSON document: /data/rows",
     [](Options& options, const std::string& text) { return options.import.rows.emplace(text), true; }},
    {kImport, "--skip-bad", nullptr, "Leave bad rows out and count them: exit code 3",
     [](Options& options, const std::string& /*text*/) { return options.import.skipBad = true; }},
    {kImport, "--format", "ndjson|json|csv", "What the rows are; default: what they look like", TakeFormat},
    {kView, "--force", nullptr, "Replace PAGE if it exists", Set<&Options::force>},
    {kInfo | kList | kCheck, "--format", "table|json|csv", "What to print; default: table", TakeFormat},
    {kCat, "--format", "ndjson|csv|raw", "What to print; default: ndjson", TakeFormat},
    {kAll, "--color", "auto|always|never", "Colours; auto: on a terminal, without NO_COLOR", TakeColor},
    {kAll, "-q,--quiet", nullptr, "No progress, and nothing about files that are fine", Set<&Options::quiet>},
    {kAll, "-v,--verbose", nullptr, "Log entries of the library, and how many records were selected",
     Set<&Options::verbose>},
});

}  // namespace

std::span<const CommandRow> CommandRows()
{
    return kCommands;
}

std::span<const OptionRow> OptionRows()
{
    return kOptions;
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(separator, begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

}  // namespace Corvane::FileTool
