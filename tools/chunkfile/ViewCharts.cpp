#include "chunkfile/ViewCharts.h"

#include <algorithm>
#include <utility>

#include "chunkfile/Html.h"

namespace Corvane::FileTool::Charts {

using Html::Decimal;

namespace {

constexpr std::uint64_t kCellsOfLine = 64;

std::string Begin(const std::string& title, std::size_t width, std::size_t height)
{
    return "<svg role=\"img\" viewBox=\"0 0 " + std::to_string(width) + " " + std::to_string(height) +
           "\" preserveAspectRatio=\"none\"><title>" + title + "</title>\n";
}

// A label left of the plot, at a share of its height from the top.
std::string HeightLabel(double share, const std::string& text)
{
    return "<span class=\"y\" style=\"top:" + Decimal(100 * share) + "%\">" + text + "</span>";
}

std::string AxisOf(const std::vector<Tick>& ticks)
{
    std::string html = "<div class=\"axis\" aria-hidden=\"true\">";
    for (const auto& [share, text] : ticks) {
        const char* const side = share < 0.04 ? " class=\"first\"" : "";
        html.append("<span").append(share > 0.96 ? " class=\"last\"" : side);
        html.append(" style=\"left:").append(Decimal(100 * share)).append("%\">").append(text).append("</span>");
    }
    return html += "</div>\n";
}

std::string GridOf(const std::vector<Tick>& ticks, std::size_t width)
{
    std::string path = "M0 0H" + std::to_string(width) + "M0 50H" + std::to_string(width);
    for (const auto& [share, text] : ticks) {
        path += "M" + Decimal(share * static_cast<double>(width)) + " 0V100";
    }
    return "<path class=\"grid\" d=\"" + path + "\"/>\n";
}

// The least of 1, 2, 5, 10, ... that is not below the number. Of bytes, in their unit.
std::uint64_t RoundTop(std::uint64_t number, bool inBytes)
{
    std::uint64_t unit = 1;
    while (inBytes && number / unit >= 1024) {
        unit *= 1024;
    }
    for (std::uint64_t ten = 1; ten <= UINT64_MAX / 10; ten *= 10) {
        for (const std::uint64_t digit : {1U, 2U, 5U}) {
            if (ten * digit >= (number + unit - 1) / unit) {
                return ten * digit * unit;
            }
        }
    }
    return UINT64_MAX;
}

std::string Amount(std::uint64_t number, bool inBytes)
{
    return inBytes ? Html::BytesText(number) : Html::Digits(number);
}

// The part of one of `number` columns, as a path. Few columns are narrow. What is not zero can be seen.
void AppendBox(std::string& path, std::size_t place, std::size_t number, double from, double to)
{
    const double width = std::min(0.88, static_cast<double>(number) / 16);
    path += "M" + Decimal(static_cast<double>(place) + 0.5 - width / 2) + " " + Decimal(100 - from) + "V" +
            Decimal(100 - std::max(to, from + 1)) + "h" + Decimal(width) + "V" + Decimal(100 - from) + "z";
}

// Boxes that cannot be seen and say what is there to a mouse that rests on them.
std::string TipsOf(const std::vector<Column>& columns)
{
    std::string html;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].lower + columns[i].upper != 0) {
            html += "<rect x=\"" + std::to_string(i) + R"(" width="1" height="100"><title>)" + columns[i].tip +
                    "</title></rect>\n";
        }
    }
    return html;
}

// A run of values side by side, as steps: along the most, and back along the least.
std::string StepsOf(const std::vector<Span>& spans, double least, double most)
{
    // Divided first: the difference of two doubles can be too large for one.
    const double room = most / 2 - least / 2;
    const auto height = [&](double value) { return room > 0 ? 96 - 92 * ((value / 2 - least / 2) / room) : 50; };
    std::string path;
    std::string back;
    const auto close = [&] { path += back.empty() ? "" : std::exchange(back, {}) + "z"; };
    for (std::size_t i = 0; i < spans.size(); ++i) {
        const Span& span = spans[i];
        if (!span) {
            close();
            continue;
        }
        path += (back.empty() ? "M" : "L") + std::to_string(i) + " " + Decimal(height(span->second)) + "h1";
        back.insert(0, "L" + std::to_string(i + 1) + " " + Decimal(height(span->first)) + "h-1");
    }
    close();
    return path;
}

}  // namespace

std::string Map(const std::string& title, const ByteMap& map)
{
    const std::uint64_t cells = map.Cells();
    const std::uint64_t lines = (cells + kCellsOfLine - 1) / kCellsOfLine;
    std::string labels;
    std::string html = Begin(title, kCellsOfLine * 10, lines * 10);
    for (std::uint64_t cell = 0; cell < cells;) {
        const std::uint64_t lineEnd = std::min(cells, cell - cell % kCellsOfLine + kCellsOfLine);
        const ByteKind kind = map.KindOf(cell);
        std::uint64_t end = cell + 1;
        while (end < lineEnd && map.KindOf(end) == kind) {
            ++end;
        }
        if (cell % kCellsOfLine == 0) {
            labels += "<span>" + Html::BytesText(cell * map.CellSize()) + "</span>\n";
        }
        html += "<rect class=\"k" + std::to_string(static_cast<int>(kind)) + "\" x=\"" +
                std::to_string(cell % kCellsOfLine * 10) + "\" y=\"" + std::to_string(cell / kCellsOfLine * 10) +
                "\" width=\"" + std::to_string((end - cell) * 10) + "\" height=\"10\"/>\n";
        cell = end;
    }
    html += "<rect fill=\"url(#cells)\" width=\"100%\" height=\"100%\"/></svg>";
    return "<div class=\"map\"><div class=\"lines\" aria-hidden=\"true\">" + labels +
           "</div><div style=\"height:" + std::to_string(lines) + "rem\">" + html + "</div></div>\n";
}

std::string Swatch(ByteKind kind)
{
    return R"(<svg class="swatch" viewBox="0 0 10 10" aria-hidden="true"><rect class="k)" +
           std::to_string(static_cast<int>(kind)) + R"(" width="10" height="10"/></svg>)";
}

std::string Columns(const std::string& title, const std::vector<Column>& columns, const std::vector<Tick>& ticks,
                    bool inBytes)
{
    std::uint64_t most = 1;
    for (const Column& column : columns) {
        most = std::max(most, column.lower + column.upper);
    }
    most = RoundTop(most, inBytes);
    const auto height = [&](std::uint64_t number) {
        return 100 * (static_cast<double>(number) / static_cast<double>(most));
    };
    std::string lower;
    std::string upper;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const double border = height(columns[i].lower);
        if (columns[i].lower != 0) {
            AppendBox(lower, i, columns.size(), 0, border);
        }
        if (columns[i].upper != 0) {
            AppendBox(upper, i, columns.size(), border, height(columns[i].lower + columns[i].upper));
        }
    }
    return "<div class=\"plot\">" + Begin(title, columns.size(), 100) + GridOf(ticks, columns.size()) +
           "<path class=\"k2\" d=\"" + lower + "\"/><path class=\"k4\" d=\"" + upper + "\"/>\n" + TipsOf(columns) +
           "</svg>" + HeightLabel(0, Amount(most, inBytes)) +
           (most % 2 == 0 ? HeightLabel(0.5, Amount(most / 2, inBytes)) : "") + HeightLabel(1, "0") + "</div>\n" +
           AxisOf(ticks);
}

std::string Band(const std::string& title, const std::vector<Span>& spans, const std::vector<Tick>& ticks,
                 const ExactNumber& least, const ExactNumber& most)
{
    return "<div class=\"limit\">" + most.text + "</div><div class=\"plot band\">" + Begin(title, spans.size(), 100) +
           GridOf(ticks, spans.size()) + "<path class=\"value\" d=\"" + StepsOf(spans, least.value, most.value) +
           "\"/></svg></div>" + AxisOf(ticks) +
           (least.text == most.text ? "" : "<div class=\"limit\">" + least.text + "</div>\n");
}

}  // namespace Corvane::FileTool::Charts
