#pragma once

#include <concepts>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace Corvane::FileTool {

/// Appends the name of a field with its quotes. One that is not UTF-8 becomes `base64:` and its bytes in base64, and so
/// does one that begins with `base64:`. So each name can be had back.
void AppendJsonName(std::string& line, std::string_view name);

/// Appends the value of a field, so that its bytes can be had back:
/// - compact JSON but no string, if `typed`: the bytes themselves
/// - other UTF-8: a string. So is an object that begins with the name "base64", or with a name that has an escape.
/// - other bytes: `{"base64":"..."}`
void AppendJsonValue(std::string& line, std::string_view value, bool typed);

/// Whether the bytes are a JSON number, true, false, null, object or array in compact form: no space outside strings.
/// Nesting is at most kMostNesting. Strings are UTF-8 without control characters and without halves of surrogates.
bool IsCompactJson(std::string_view bytes);  // JsonGrammar.cpp
constexpr int kMostNesting = 64;             // what every JSON parser can read

struct JsonFault {
    std::size_t position;
    const char* reason;
};

/// Where a text stops being a JSON value of at most this many levels, and why. Nothing if it is such a value. Spaces
/// are allowed. Strings are UTF-8 without halves of surrogates.
std::optional<JsonFault> FaultOf(std::string_view text, int levels);  // JsonGrammar.cpp

/// A line of CSV (RFC 4180) without its end, kCsvEnd. Fields are quoted only where they must be.
std::string CsvLine(std::initializer_list<std::string_view> fields);
void AppendCsv(std::string& line, std::string_view field);
constexpr std::string_view kCsvEnd = "\r\n";

/// The bytes if they are UTF-8 and do not begin with `base64:`; else `base64:` and the bytes in base64.
std::string TextOrBase64(std::string_view bytes);

/// The bytes of base64 as the functions above write it: with padding, in one way only. Nothing for another text.
std::optional<std::string> FromBase64(std::string_view text);

/// Turns `base64:...`, or the compact object `{"base64":"..."}`, into the bytes. Leaves another text alone.
///@{
void DecodeBase64Mark(std::string& text);
void DecodeBase64Object(std::string& text);
///@}

/// Builds a JSON document in one line. The caller opens and closes in an order that makes sense; commas are this
/// class's. Texts that are not UTF-8 become TextOrBase64.
class JsonDocument {
public:
    /// Opens `{` or `[`: as a member, or without a name as an element or the document.
    JsonDocument& Open(char bracket, std::string_view name = {});
    JsonDocument& Close();

    JsonDocument& Member(std::string_view name, std::string_view text);
    JsonDocument& Member(std::string_view name, const char* text) { return Member(name, std::string_view(text)); }
    template <std::integral Value>
    JsonDocument& Member(std::string_view name, Value value)
    {
        if constexpr (std::same_as<Value, bool>) {
            return Plain(name, value ? "true" : "false");
        } else {
            return Plain(name, std::to_string(value));
        }
    }
    template <typename Value>
    JsonDocument& Member(std::string_view name, const std::optional<Value>& value)  ///< only if there is one
    {
        return value ? Member(name, *value) : *this;
    }
    JsonDocument& Null(std::string_view name) { return Plain(name, "null"); }

    /// Adds to an array.
    JsonDocument& Element(std::string_view text) { return Member({}, text); }

    /// The document so far, without a line feed.
    const std::string& Line() const { return line_; }

private:
    void Begin(std::string_view name);
    JsonDocument& Plain(std::string_view name, std::string_view text);

    std::string line_;
    std::string closing_;  // for the brackets that are open
};

}  // namespace Corvane::FileTool
