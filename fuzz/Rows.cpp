// Reads any text as NDJSON, JSON and CSV: rows come back from what cat would print of them, and the two judges of JSON,
// simdjson and the grammar, agree.
#include <algorithm>
#include <set>
#include <string>

#include "Support.h"
#include "chunkfile/Json.h"
#include "chunkfile/JsonRow.h"
#include "chunkfile/Rows.h"

namespace {

using fuzz::Check;
using namespace Corvane::FileTool;

std::vector<Row> RowsOf(const std::string& text, Format format, bool catLines)
{
    const fuzz::MemoryFile file(text);
    TextStream stream(file.Path());
    const auto lines = static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
    std::vector<Row> rows;
    std::unique_ptr<RowReader> reader;
    for (Row row;;) {
        try {
            if (reader == nullptr) {
                FormatOf(stream);
                reader = ReadRows(stream, format, "", catLines);
            }
            if (!reader->Next(row)) {
                return rows;
            }
            rows.push_back(row);
        } catch (const BadRow& bad) {
            Check(bad.place.line >= 1 && bad.place.line <= lines + 1, "the line is one of the text");
            Check(bad.place.column >= 1 && bad.place.column <= text.size() + 1, "the column is one of the text");
            if (reader == nullptr) {
                return rows;
            }
        }
    }
}

void CheckNames(const Row& row)
{
    std::set<std::string> names;
    for (const auto& [name, value] : row.fields) {
        names.insert(name);
    }
    Check(names.size() == row.fields.size(), "no name comes twice");
}

// The row as cat prints it.
std::string LineOf(const Row& row)
{
    std::string line = "{\"time\":\"\",\"fields\":{";
    for (const auto& [name, value] : row.fields) {
        line += line.back() == '{' ? "" : ",";
        AppendJsonName(line, name);
        AppendJsonValue(line += ':', value, /* typed = */ true);
    }
    return line + "}}\n";
}

std::string CsvOf(const std::vector<Row>& rows)
{
    std::string text = "\xEF\xBB\xBF";  // the only mark that is taken: a name may begin with another
    const auto append = [&text](const std::string& cell, bool first) {
        AppendCsv(text += first ? "" : ",", TextOrBase64(cell));
    };
    const auto& names = rows.front().fields;
    for (const auto& field : names) {
        append(field.first, &field == &names.front());
    }
    for (const Row& row : rows) {
        text += "\r\n";
        for (const auto& field : row.fields) {
            append(field.second, &field == &row.fields.front());
        }
    }
    return text + "\n";
}

void CheckBack(const std::vector<Row>& rows, Format format)
{
    std::string lines;
    for (const Row& row : rows) {
        CheckNames(row);
        lines += LineOf(row);
    }
    const auto same = [](const Row& left, const Row& right) { return left.fields == right.fields; };
    Check(std::ranges::equal(rows, RowsOf(lines, Format::Ndjson, true), same), "lines of cat give the rows back");
    if (format == Format::Csv && !rows.empty()) {
        Check(std::ranges::equal(rows, RowsOf(CsvOf(rows), Format::Csv, false), same), "CSV gives the rows back");
    }
}

void CheckJudges(const std::string& text)
{
    std::string padded = text;
    padded.resize(text.size() + TextStream::kPadding);
    const bool isObject = text.find_first_not_of(" \t\r\n") == text.find('{');
    const bool good = !FaultOf(text, kMostNesting + 1) && isObject;
    Row row;
    try {
        JsonRow(false).Parse({padded.data(), text.size()}, row);
        Check(good, "what simdjson takes is JSON to the grammar");
    } catch (const BadText& bad) {
        Check(bad.position <= text.size(), "the position is one of the text");
        Check(!good || std::string(bad.what()).starts_with("a second field"),
              "what is JSON to the grammar, simdjson takes");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const fuzz::TimeLimit limit;
    const fuzz::Input input(data, size);
    for (const Format format : {Format::Ndjson, Format::Json, Format::Csv}) {
        CheckBack(RowsOf(input.file, format, input.choices[0] % 2 != 0), format);
    }
    CheckJudges(input.file);
    return 0;
}
