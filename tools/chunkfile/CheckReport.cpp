#include "chunkfile/CheckReport.h"

#include <array>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Json.h"
#include "chunkfile/Times.h"

namespace Corvane::FileTool {

namespace {

using Style = Terminal::Style;

constexpr std::array<Style, 3> kStyles = {Style::Bad, Style::Warning, Style::Dim};  // of each severity

std::string BytesText(Range bytes)
{
    return "bytes " + std::to_string(bytes.begin) + " to " + std::to_string(bytes.end);
}

std::string FindingText(const Finding& finding)
{
    std::string text = BytesText(finding.bytes);
    if (finding.record) {
        text += ", record " + std::to_string(*finding.record);
    }
    if (!finding.time.empty()) {
        text += (finding.severity == Severity::Error ? ", after " : ", ") + finding.time;
    }
    return text + ": " + finding.text;
}

std::string RunText(const RecordRun& run)
{
    std::string text = BytesText({run.begin, run.end}) + ": " + Number(run.records, "good record", "good records");
    return run.reason.empty() ? text : text + ", doubtful: " + run.reason;
}

void WriteTable(Terminal& terminal, const Checked& checked)
{
    const Style style = checked.verdict == Verdict::Sound ? Style::Good : Style::Bad;
    const auto line = [&terminal](const std::string& text) { terminal.Write("  " + text + "\n"); };
    terminal.Write(Terminal::Escaped(checked.file) + ": " + terminal.Styled(style, NameOf(checked.verdict)) + "\n");
    for (const Finding& finding : checked.findings) {
        const std::string code = std::string(NameOf(finding.severity)) + " " + std::string(finding.code);
        line(terminal.Styled(kStyles[static_cast<std::size_t>(finding.severity)], code) + ": " +
             Terminal::Escaped(FindingText(finding)));
        if (finding.code == "found-after") {
            for (const RecordRun& run : checked.survey.runs) {
                line("  " + RunText(run));
            }
            if (const std::uint64_t others = checked.survey.numberOfRuns - checked.survey.runs.size(); others != 0) {
                line("  and " + Number(others, "more run", "more runs"));
            }
        }
    }
    line(ReopeningText(checked));
}

void AddFindings(JsonDocument& json, const std::vector<Finding>& findings)
{
    json.Open('[', "findings");
    for (const Finding& finding : findings) {
        json.Open('{').Member("severity", NameOf(finding.severity)).Member("code", finding.code);
        json.Member("begin", finding.bytes.begin).Member("end", finding.bytes.end);
        json.Member("record", finding.record);
        if (!finding.time.empty()) {
            json.Member("time", finding.time);
        }
        json.Member("text", finding.text).Close();
    }
    json.Close();
}

void AddRuns(JsonDocument& json, const Survey& survey)
{
    json.Open('{', "after").Member("found", survey.found).Member("doubtful", survey.doubtful);
    json.Member("numberOfRuns", survey.numberOfRuns).Open('[', "runs");
    for (const RecordRun& run : survey.runs) {
        json.Open('{').Member("begin", run.begin).Member("end", run.end).Member("records", run.records);
        json.Member("doubt", run.reason).Close();
    }
    json.Close().Close();
}

void AddReopening(JsonDocument& json, const Checked& checked)
{
    const Reopening& reopening = checked.reopening;
    json.Open('{', "reopening").Member("maxSize", checked.maxSize).Member("accepted", reopening.refusal.empty());
    if (reopening.refusal.empty()) {
        json.Member("records", reopening.records).Member("position", reopening.position);
        json.Member("timePoints", reopening.timePoints).Member("overwrites", reopening.overwrites);
    } else {
        json.Member("error", reopening.refusal);
    }
    json.Close();
}

void WriteJson(Terminal& terminal, const Checked& checked)
{
    const Survey& survey = checked.survey;
    JsonDocument json;
    json.Open('{').Member("schema", "chunkfile.check/1").Member("file", checked.file);
    json.Member("verdict", NameOf(checked.verdict)).Member("size", survey.size);
    json.Member("version", std::to_string(survey.version)).Member("count", std::to_string(survey.count));
    json.Member("records", survey.end.records).Member("end", survey.end.position);
    if (survey.times.first && survey.times.last) {
        json.Member("first", TimeText(*survey.times.first)).Member("last", TimeText(*survey.times.last));
    }
    AddFindings(json, checked.findings);
    AddRuns(json, survey);
    AddReopening(json, checked);
    json.Close();
    terminal.WriteLine(json.Line());
}

void WriteCsv(Terminal& terminal, bool first, const Checked& checked)
{
    if (first) {
        terminal.Write("file,verdict,severity,code,begin,end,record,time,text\r\n");
    }
    const std::string file = TextOrBase64(checked.file);
    const std::string_view verdict = NameOf(checked.verdict);
    if (checked.findings.empty()) {
        terminal.WriteLine(CsvLine({file, verdict, "", "", "", "", "", "", ""}), kCsvEnd);
    }
    for (const Finding& finding : checked.findings) {
        terminal.WriteLine(CsvLine({file, verdict, NameOf(finding.severity), finding.code,
                                    std::to_string(finding.bytes.begin), std::to_string(finding.bytes.end),
                                    finding.record ? std::to_string(*finding.record) : "", finding.time, finding.text}),
                           kCsvEnd);
    }
}

}  // namespace

std::string ReopeningText(const Checked& checked)
{
    const Reopening& reopening = checked.reopening;
    const std::string bound = checked.maxSize == 0 ? "" : " with maximum size " + std::to_string(checked.maxSize);
    if (!reopening.refusal.empty()) {
        return "a reopening" + bound + " throws: " + Terminal::Escaped(reopening.refusal);
    }
    return "a reopening" + bound + " keeps " + std::to_string(reopening.records) + " of " +
           Records(checked.survey.count) + " and " + Number(reopening.timePoints, "time point", "time points") +
           "; an append then writes from byte " + std::to_string(reopening.position) + " on, over " +
           std::string(reopening.overwrites);
}

void WriteReport(Terminal& terminal, Format format, bool first, const Checked& checked)
{
    if (format == Format::Json) {
        WriteJson(terminal, checked);
    } else if (format == Format::Csv) {
        WriteCsv(terminal, first, checked);
    } else {
        WriteTable(terminal, checked);
    }
}

}  // namespace Corvane::FileTool
