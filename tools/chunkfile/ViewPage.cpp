#include "chunkfile/ViewPage.h"

#include <algorithm>

#include "chunkfile/Glue.h"
#include "chunkfile/Html.h"
#include "chunkfile/InfoReport.h"
#include "chunkfile/ViewCharts.h"
#include "chunkfile/ViewTime.h"

namespace Corvane::FileTool {

using Html::Digits;
using Html::Prose;

namespace {

constexpr std::size_t kMostFields = 100;  // names in the table

std::string Numbered(const char* id, std::uint64_t number)
{
    return std::string("<span id=\"") + id + "\">" + Digits(number) + "</span>";
}

std::string Section(const char* id, const char* heading, const std::string& content)
{
    return std::string("<section id=\"") + id + "\"><h2>" + heading + "</h2>\n" + content + "</section>\n";
}

// What is left out of a table or a picture; nothing if that is nothing.
std::string LeftOut(std::uint64_t number, const char* one, const char* many)
{
    return number == 0 ? "" : "<p class=\"soft\">" + Prose(Number(number, one, many)) + " not shown.</p>\n";
}

std::string LeadOf(const Checked& checked)
{
    const Survey& survey = checked.survey;
    switch (checked.verdict) {
        case Verdict::Sound:
            return survey.count == 0 ? "The header counts no records." : "All records that the header counts are good.";
        case Verdict::Unknown:
        case Verdict::Unclear:
            return "No record of this tool's chunk type was found.";
        case Verdict::Unreadable:
        case Verdict::Damaged:
            break;
    }
    if (survey.damage == Damage::ShortFile) {
        return "The file has no whole header.";
    }
    return std::to_string(survey.end.records) + " of " + Records(survey.count) + " can be read, up to byte " +
           std::to_string(survey.end.position) + "." +
           (survey.found == 0 ? "" : " After the damage, " + std::to_string(survey.found) + " more are this file's.");
}

std::string KeyFigure(const std::string& name, const std::string& figure, const std::string& more)
{
    return "<div><dt>" + name + "</dt><dd><b>" + figure + "</b><small>" + more + "</small></dd></div>\n";
}

std::string KeyFigures(const Checked& checked, const std::vector<Line>& lines)
{
    const Survey& survey = checked.survey;
    std::string html = "<dl class=\"key\">" +
                       KeyFigure("Records", Numbered("records", survey.end.records),
                                 "of " + Numbered("count", survey.count) + " counted") +
                       KeyFigure("Size", Html::BytesText(survey.size), Numbered("size", survey.size) + " bytes");
    if (survey.found + survey.doubtful != 0) {
        html += KeyFigure(survey.damage == Damage::None ? "After the records" : "After damage",
                          Numbered("found", survey.found),
                          "of this file, " + Numbered("doubtful", survey.doubtful) + " doubtful");
    }
    for (const auto& [name, text] : lines) {
        if (name == "span") {
            const std::size_t comma = std::min(text.find(", "), text.size());
            html += KeyFigure("Time span", text.substr(0, comma), text.substr(std::min(comma + 2, text.size())));
        }
    }
    if (const auto& [least, most] = survey.sizes; survey.end.records != 0) {
        html += KeyFigure("Record sizes", Digits(least) + (least == most ? "" : "–" + Digits(most)), "bytes");
    }
    return html + "</dl>\n";
}

std::string Header(const Checked& checked, const std::vector<Line>& lines)
{
    const std::string verdict(NameOf(checked.verdict));
    return "<header><h1><bdi>" + Html::Path(checked.file) + "</bdi></h1>\n<p><span class=\"verdict " + verdict +
           "\" id=\"verdict\">" + verdict + "</span></p>\n<p class=\"lead\">" + Prose(LeadOf(checked)) +
           "</p></header>\n" + KeyFigures(checked, lines);
}

std::string RunsTable(const Survey& survey)
{
    std::vector<Html::Row> rows;
    rows.reserve(survey.runs.size());
    for (const RecordRun& run : survey.runs) {
        rows.push_back({Digits(run.begin), Digits(run.end), Digits(run.records), Prose(run.reason)});
    }
    return rows.empty() ? ""
                        : Html::Table("Runs of good records after the end or damage",
                                      {"from byte", "to byte", "records", "doubt"}, rows) +
                              LeftOut(survey.numberOfRuns - rows.size(), "run is", "runs are");
}

std::string Findings(const Checked& checked)
{
    std::string html = "<ul class=\"findings\">\n";
    for (const Finding& finding : checked.findings) {
        const std::string severity(NameOf(finding.severity));
        const std::string code(finding.code);
        html.append("<li data-begin=\"").append(std::to_string(finding.bytes.begin));
        html.append("\" data-end=\"").append(std::to_string(finding.bytes.end));
        html.append("\"><span class=\"tag ").append(severity).append("\">").append(severity).append("</span> <code>");
        html.append(code).append("</code> <span>").append(Prose(finding.text)).append("</span><small>bytes ");
        html.append(Digits(finding.bytes.begin)).append(" to ").append(Digits(finding.bytes.end));
        html += finding.record ? ", record " + Digits(*finding.record) : "";
        const char* const when = finding.severity == Severity::Error ? ", after " : ", ";
        html += finding.time.empty() ? "" : when + Prose(finding.time);
        html += "</small></li>\n";
    }
    return Section("findings", "Findings",
                   (checked.findings.empty() ? "<p>There is nothing to say about this file.</p>\n" : html + "</ul>\n") +
                       RunsTable(checked.survey) + "<p class=\"soft\">A" + Prose(ReopeningText(checked).substr(1)) +
                       ".</p>\n");
}

std::string MapSection(const ByteMap& map, std::uint64_t size)
{
    std::string legend = "<ul class=\"legend\">\n";
    for (const ByteKind kind : {ByteKind::Header, ByteKind::Records, ByteKind::Damage, ByteKind::Found,
                                ByteKind::Doubtful, ByteKind::Unreadable, ByteKind::Other, ByteKind::Zeros}) {
        if (const std::uint64_t sum = map.Sum(kind); sum != 0) {
            legend += "<li>" + Charts::Swatch(kind) + std::string(NameOf(kind)) + " <small>" + Digits(sum) +
                      " B</small></li>\n";
        }
    }
    std::vector<Html::Row> rows;
    for (const ByteMap::Part& part : map.Parts()) {
        rows.push_back({std::string(NameOf(part.kind)), Digits(part.bytes.begin), Digits(part.bytes.end),
                        Digits(part.bytes.end - part.bytes.begin)});
    }
    return Section("map", "Map of the file",
                   "<p class=\"soft\">Each cell is " + Html::BytesText(map.CellSize()) +
                       ". One with bytes of several kinds shows the gravest.</p>\n<figure>" +
                       Charts::Map("What the " + Prose(Bytes(size)) + " are, cell by cell", map) + legend + "</ul>" +
                       Html::Table("Numbers of the map", {"kind", "from byte", "to byte", "bytes"}, rows) +
                       LeftOut(map.PartsLeftOut(), "more part is", "more parts are") + "</figure>\n");
}

std::string SizesSection(const ViewFacts& facts)
{
    std::vector<Charts::Column> columns;
    std::vector<Html::Row> rows;
    const auto classes = facts.Sizes().All();
    for (const SizeClasses::Class& sizes : classes) {
        const std::string span = Digits(sizes.least) + " to " + Digits(sizes.most);
        columns.push_back({sizes.records, 0, span + " bytes: " + std::to_string(sizes.records)});
        if (sizes.records != 0) {
            rows.push_back({Digits(sizes.least), Digits(sizes.most), Digits(sizes.records)});
        }
    }
    std::vector<Charts::Tick> ticks;
    const std::size_t step = (classes.size() + 3) / 4;
    for (std::size_t i = 0; i < classes.size(); i += step) {
        ticks.emplace_back((static_cast<double>(i) + 0.5) / static_cast<double>(classes.size()),
                           Digits(classes[i].least));
    }
    return Section("sizes", "Sizes of records",
                   "<figure><figcaption>Number of records by size in bytes; the axis is logarithmic</figcaption>" +
                       Charts::Columns("Number of records by size", columns, ticks, false) +
                       Html::Table("Numbers of the sizes", {"from bytes", "to bytes", "records"}, rows) +
                       "</figure>\n");
}

std::string FieldsTable(const ViewFacts& facts)
{
    std::vector<const FieldFacts*> fields;
    for (const FieldFacts& field : facts.Fields()) {
        fields.push_back(&field);
    }
    std::sort(fields.begin(), fields.end(), [](auto left, auto right) { return left->name < right->name; });
    std::vector<Html::Row> rows;
    for (const FieldFacts* field : fields) {
        if (rows.size() < kMostFields) {
            rows.push_back({"<bdi>" + Html::Text(field->name) + "</bdi>", Digits(field->records), Digits(field->found),
                            Digits(field->numbers)});
        }
    }
    const std::uint64_t left = fields.size() - rows.size();
    return Html::Table("Names of fields", {"field", "records", "after damage", "numbers"}, rows) +
           (facts.LacksFields() ? "<p class=\"soft\">There are more names than can be counted.</p>\n" : "") +
           LeftOut(left, "name is", "names are");
}

std::string FieldsSection(const ViewFacts& facts)
{
    std::string html;
    std::uint64_t left = 0;
    for (const FieldFacts& field : facts.Fields()) {
        html += field.band == SIZE_MAX ? "" : BandOf(facts, field);
        left += field.band == SIZE_MAX && field.numbers != 0 ? 1 : 0;
    }
    return Section("fields", "Fields",
                   "<p class=\"soft\">The least and the most of each field with numbers" +
                       std::string(facts.HasTimes() ? ", over time" : "") + ".</p>\n<div class=\"fields\">" + html +
                       "</div>\n" + LeftOut(left, "more field with numbers is", "more fields with numbers are") +
                       FieldsTable(facts));
}

std::string FactsSection(const std::vector<Line>& lines)
{
    std::string html = "<dl class=\"facts\">\n";
    for (const auto& [name, text] : lines) {
        html += "<dt>" + Prose(name) + "</dt><dd>" + Prose(text) + "</dd>\n";
    }
    return Section("facts", "Facts", html + "</dl>\n");
}

}  // namespace

std::string ViewPage(const Checked& checked, const ViewFacts& facts)
{
    const std::string platform = Glue::PlatformName();
    const std::vector<Line> lines = InfoLines({checked.file, false, checked.survey}, true);
    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"/>\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n<title>" +
        Html::Text(checked.file) + ", chunkfile</title>\n<style>" + std::string(kViewStyle) +
        "</style></head>\n<body>" + std::string(kViewPatterns) + Header(checked, lines) + "<main>\n" +
        Findings(checked) + MapSection(facts.Map(), checked.survey.size);
    if (facts.Time().Length() != 0) {
        html += TimeSection(facts) + SizesSection(facts);
    }
    html += facts.Fields().empty() ? "" : FieldsSection(facts);
    return html + FactsSection(lines) + "</main>\n<footer>chunkfile " CORVANE_FILE_VERSION +
           (platform.empty() ? "" : ", " + Prose(platform)) + "</footer></body></html>\n";
}

}  // namespace Corvane::FileTool
