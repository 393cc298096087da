#include "chunkfile/Json.h"

#include <algorithm>

#include "chunkfile/Utf8.h"

namespace Corvane::FileTool {

namespace {

constexpr std::string_view kBase64Mark = "base64:";

constexpr std::string_view kBase64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Three bytes, or the last one or two and zeros, become four digits, or two or three and padding.
void AppendBase64(std::string& line, std::string_view bytes)
{
    line.reserve(line.size() + (bytes.size() + 2) / 3 * 4);
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
        const auto bits = [bytes](std::size_t i) {
            return i < bytes.size() ? std::uint32_t{static_cast<unsigned char>(bytes[i])} << (16 - 8 * i) : 0;
        };
        const std::uint32_t group = bits(0) | bits(1) | bits(2);
        const auto digit = [&](std::size_t i) {
            return i > bytes.size() ? '=' : kBase64Digits[group >> (18 - 6 * i) & 63];
        };
        line.append({digit(0), digit(1), digit(2), digit(3)});
    }
}

void AppendEscaped(std::string& line, std::uint32_t code)
{
    constexpr std::string_view escaped = "\"\\\b\f\n\r\t";
    constexpr std::string_view letters = "\"\\bfnrt";
    constexpr std::string_view hex = "0123456789abcdef";
    const std::size_t at = code < 0x80 ? escaped.find(static_cast<char>(code)) : std::string_view::npos;
    if (at != std::string_view::npos) {
        line.append({'\\', letters[at]});
    } else {
        line.append("\\u00").append({hex[code / 16], hex[code % 16]});
    }
}

// Appends the text as a string with its quotes, or nothing if it is not UTF-8.
bool AppendIfUtf8(std::string& line, std::string_view text)
{
    const std::size_t begin = line.size();
    line += '"';
    for (;;) {
        const std::size_t plain = PlainPrefix(text);
        line.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            line += '"';
            return true;
        }
        const Character next = FirstCharacter(text);
        if (next.code == kNoCharacter) {
            line.resize(begin);
            return false;
        }
        if (IsControl(next.code) || next.code == '"' || next.code == '\\') {
            AppendEscaped(line, next.code);
        } else {
            line.append(text.substr(0, next.size));
        }
        text.remove_prefix(next.size);
    }
}

// Whether the object could be taken for bytes in base64, by a program that reads escapes too.
bool LooksLikeBytes(std::string_view json)
{
    const std::string_view name = json.substr(0, json.find('"', 2)).substr(std::min<std::size_t>(2, json.size()));
    return json.starts_with("{\"") && (name == "base64" || name.find('\\') != std::string_view::npos);
}

void DecodeBetween(std::string& text, std::string_view begin, std::string_view end)
{
    if (text.size() >= begin.size() + end.size() && text.starts_with(begin) && text.ends_with(end)) {
        const std::string_view digits = text;
        if (auto bytes = FromBase64(digits.substr(begin.size(), text.size() - begin.size() - end.size()))) {
            text = std::move(*bytes);
        }
    }
}

}  // namespace

void AppendJsonName(std::string& line, std::string_view name)
{
    if (name.starts_with(kBase64Mark) || !AppendIfUtf8(line, name)) {
        AppendBase64(line.append("\"").append(kBase64Mark), name);
        line += '"';
    }
}

void AppendJsonValue(std::string& line, std::string_view value, bool typed)
{
    if (typed && IsCompactJson(value) && !LooksLikeBytes(value)) {
        line.append(value);
    } else if (!AppendIfUtf8(line, value)) {
        AppendBase64(line.append("{\"base64\":\""), value);
        line.append("\"}");
    }
}

void AppendCsv(std::string& line, std::string_view field)
{
    if (field.find_first_of("\",\r\n") == std::string_view::npos) {
        line.append(field);
        return;
    }
    line += '"';
    for (const char byte : field) {
        line.append(byte == '"' ? 2 : 1, byte);
    }
    line += '"';
}

std::string CsvLine(std::initializer_list<std::string_view> fields)
{
    std::string line;
    for (const std::string_view field : fields) {
        AppendCsv(line, field);
        line += ',';
    }
    line.pop_back();
    return line;
}

std::string TextOrBase64(std::string_view bytes)
{
    std::string text;
    if (!bytes.starts_with(kBase64Mark) && AppendIfUtf8(text, bytes)) {
        return std::string(bytes);
    }
    AppendBase64(text.append(kBase64Mark), bytes);
    return text;
}

std::optional<std::string> FromBase64(std::string_view text)
{
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    std::size_t have = 0;
    for (const char digit : text.substr(0, std::min(text.find('='), text.size()))) {
        const std::size_t value = kBase64Digits.find(digit);
        if (value == std::string_view::npos) {
            return {};
        }
        bits = bits << 6U | static_cast<std::uint32_t>(value);
        if (++have % 4 != 1) {
            bytes += static_cast<char>(bits >> (6 - 2 * ((have - 1) % 4)));
        }
    }
    std::string again;
    AppendBase64(again, bytes);
    return again == text ? std::optional(std::move(bytes))
                         : std::nullopt;  // else bits were lost, or the padding is wrong
}

void DecodeBase64Mark(std::string& text)
{
    DecodeBetween(text, kBase64Mark, "");
}

void DecodeBase64Object(std::string& text)
{
    DecodeBetween(text, R"({"base64":")", R"("})");
}

JsonDocument& JsonDocument::Open(char bracket, std::string_view name)
{
    Begin(name);
    line_ += bracket;
    closing_ += bracket == '{' ? '}' : ']';
    return *this;
}

JsonDocument& JsonDocument::Close()
{
    line_ += closing_.back();
    closing_.pop_back();
    return *this;
}

JsonDocument& JsonDocument::Member(std::string_view name, std::string_view text)
{
    Begin(name);
    AppendJsonName(line_, text);
    return *this;
}

JsonDocument& JsonDocument::Plain(std::string_view name, std::string_view text)
{
    Begin(name);
    line_.append(text);
    return *this;
}

void JsonDocument::Begin(std::string_view name)
{
    if (!line_.empty() && line_.back() != '{' && line_.back() != '[') {
        line_ += ',';
    }
    if (name.data() != nullptr) {  // an empty name is one too
        AppendJsonName(line_, name);
        line_ += ':';
    }
}

}  // namespace Corvane::FileTool
