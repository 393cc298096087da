#include "chunkfile/Html.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

#include "chunkfile/Commands.h"
#include "chunkfile/Utf8.h"

namespace Corvane::FileTool::Html {

namespace {

struct Codes {
    std::uint32_t first;
    std::uint32_t last;
};

// Characters without a shape of their own: they turn the direction of text, join, hide or annotate it.
constexpr std::array<Codes, 11> kHidden = {{{0xAD, 0xAD},
                                            {0x34F, 0x34F},
                                            {0x61C, 0x61C},
                                            {0x115F, 0x1160},
                                            {0x180B, 0x180F},
                                            {0x200B, 0x200F},
                                            {0x2028, 0x202E},
                                            {0x2060, 0x206F},
                                            {0xFE00, 0xFE0F},
                                            {0xFEFF, 0xFEFF},
                                            {0xE0000, 0xE0FFF}}};

bool IsShown(std::uint32_t code)
{
    const bool none = code == kNoCharacter || IsControl(code) || (code & 0xFFFEU) == 0xFFFE;
    return !none && (code < 0xFFF9 || code > 0xFFFB) &&
           std::none_of(kHidden.begin(), kHidden.end(),
                        [code](const Codes& codes) { return code >= codes.first && code <= codes.last; });
}

void AppendCharacter(std::string& html, std::uint32_t code, std::string_view bytes)
{
    constexpr std::string_view special = "&<>\"'";
    constexpr std::array<std::string_view, 5> entities = {"&amp;", "&lt;", "&gt;", "&quot;", "&#39;"};
    constexpr std::string_view hex = "0123456789abcdef";
    if (const std::size_t at = special.find(bytes); at != std::string_view::npos) {
        html.append(entities[at]);
    } else if (IsShown(code)) {
        html.append(bytes);
    } else {
        for (const char byte : bytes) {
            const auto value = static_cast<unsigned char>(byte);
            html.append("\\x").append({hex[value / 16], hex[value % 16]});
        }
    }
}

// Appends the first characters and removes them from the text.
void AppendEscaped(std::string& html, std::string_view& text, std::size_t characters)
{
    for (; !text.empty() && characters != 0; --characters) {
        const Character next = FirstCharacter(text);
        AppendCharacter(html, next.code, text.substr(0, next.size));
        text.remove_prefix(next.size);
    }
}

void AppendGrouped(std::string& html, std::string_view digits)
{
    if (digits.size() < 5) {
        html.append(digits);
        return;
    }
    const std::size_t first = (digits.size() - 1) % 3 + 1;
    html.append(digits.substr(0, first));
    for (std::size_t at = first; at < digits.size(); at += 3) {
        html.append("<i>").append(digits.substr(at, 3)).append("</i>");
    }
}

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

}  // namespace

std::string Text(std::string_view bytes)
{
    std::string html;
    AppendEscaped(html, bytes, kMostCharacters);
    return bytes.empty() ? html : html.append("… and ").append(Bytes(bytes.size())).append(" more");
}

std::string Path(std::string_view path)
{
    std::string html;
    for (const char character : Text(path)) {
        html += character;
        html += character == '/' ? "<wbr/>" : "";
    }
    return html;
}

std::string Prose(std::string_view text)
{
    std::string html;
    char before = ' ';
    while (!text.empty()) {
        const auto digits =
            static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsDigit) - text.begin());
        if (digits == 0) {
            before = text.front();
            AppendEscaped(html, text, 1);
        } else if (before == '.') {  // a fraction
            AppendEscaped(html, text, digits);
        } else {
            AppendGrouped(html, text.substr(0, digits));
            text.remove_prefix(digits);
        }
    }
    return html;
}

std::string Digits(std::uint64_t number)
{
    std::string html;
    AppendGrouped(html, std::to_string(number));
    return html;
}

std::string BytesText(std::uint64_t bytes)
{
    constexpr std::array<const char*, 7> units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; value >= 1024; ++unit) {
        value /= 1024;
    }
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.3g ", value);
    if (value >= 999.5) {  // else %g would show an exponent
        std::snprintf(text.data(), text.size(), "%.0f ", value);
    }
    return std::string(text.data()) + units[unit];
}

std::string Decimal(double number)
{
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%.2f", number);
    return text.data();
}

std::string Table(std::string_view title, const Row& columns, const std::vector<Row>& rows)
{
    std::string html = "<details><summary>" + std::string(title) + "</summary><div class=\"scroll\"><table><thead><tr>";
    for (const std::string& column : columns) {
        html.append("<th scope=\"col\">").append(column).append("</th>");
    }
    html += "</tr></thead><tbody>\n";
    for (const Row& row : rows) {
        html.append("<tr><th scope=\"row\">").append(row.front()).append("</th>");
        std::for_each(row.begin() + 1, row.end(),
                      [&html](const std::string& cell) { html.append("<td>").append(cell).append("</td>"); });
        html += "</tr>\n";
    }
    return html += "</tbody></table></div></details>\n";
}

}  // namespace Corvane::FileTool::Html
