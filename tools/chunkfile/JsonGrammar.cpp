#include <charconv>
#include <cstdint>

#include "chunkfile/Json.h"
#include "chunkfile/Utf8.h"

namespace Corvane::FileTool {

namespace {

// Takes JSON from the front of a text. Each member returns false if something else stands there.
class Grammar {
public:
    // Compact: no space outside strings, and no control characters at all.
    Grammar(std::string_view text, bool compact) : rest_(text), compact_(compact) {}

    std::string_view Rest() const { return rest_; }
    bool IsTooDeep() const { return tooDeep_; }

    bool Value(int nesting)  // NOLINT(misc-no-recursion): no deeper than kMostNesting
    {
        SkipSpace();
        if (rest_.starts_with('{') || rest_.starts_with('[')) {
            tooDeep_ = nesting >= kMostNesting;
            return !tooDeep_ && Members(rest_.starts_with('{'), nesting + 1) && SkipSpace();
        }
        return (String() || Take("true") || Take("false") || Take("null") || Number()) && SkipSpace();
    }

private:
    bool SkipSpace()
    {
        if (!compact_) {
            rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
        }
        return true;
    }

    bool Take(std::string_view word)
    {
        const bool found = rest_.starts_with(word);
        rest_.remove_prefix(found ? word.size() : 0);
        return found;
    }

    bool Members(bool object, int nesting)  // NOLINT(misc-no-recursion)
    {
        const std::string_view end = object ? "}" : "]";
        rest_.remove_prefix(1);
        if (SkipSpace() && Take(end)) {
            return true;
        }
        do {
            if ((object && !(SkipSpace() && String() && SkipSpace() && Take(":"))) || !Value(nesting)) {
                return false;
            }
        } while (Take(","));
        return Take(end);
    }

    bool Digits()
    {
        std::size_t digits = 0;  // a search for one of ten characters would take ten steps for each
        while (digits < rest_.size() && rest_[digits] >= '0' && rest_[digits] <= '9') {
            ++digits;
        }
        rest_.remove_prefix(digits);
        return digits != 0;
    }

    bool Number()
    {
        Take("-");
        if ((!Take("0") && !Digits()) || (Take(".") && !Digits())) {
            return false;
        }
        if (Take("e") || Take("E")) {
            static_cast<void>(Take("+") || Take("-"));
            return Digits();
        }
        return true;
    }

    bool String()
    {
        if (!Take("\"")) {
            return false;
        }
        while (!Take("\"")) {
            rest_.remove_prefix(PlainPrefix(rest_));
            const bool escaped = rest_.starts_with('\\');
            if (rest_.empty() || !(rest_.starts_with('"') || (escaped ? Escape() : OtherCharacter()))) {
                return false;
            }
        }
        return true;
    }

    bool OtherCharacter()
    {
        const Character character = FirstCharacter(rest_);
        const bool refused = compact_ ? IsControl(character.code) : character.code < ' ';
        if (character.code == kNoCharacter || character.code == '\\' || refused) {
            return false;
        }
        rest_.remove_prefix(character.size);
        return true;
    }

    bool Escape()
    {
        constexpr std::string_view letters = "\"\\/bfnrt";
        if (rest_.size() < 2 || rest_[0] != '\\') {
            return false;
        }
        if (letters.find(rest_[1]) != std::string_view::npos) {
            rest_.remove_prefix(2);
            return true;
        }
        const std::uint32_t first = Unit();
        return first < 0xD800 || (first >= 0xE000 && first <= 0xFFFF) ||
               (first < 0xDC00 && (Unit() & ~0x3FFU) == 0xDC00);
    }

    // Takes \uXXXX; kNoCharacter if something else stands there.
    std::uint32_t Unit()
    {
        std::uint32_t unit = 0;
        const std::string_view digits = rest_.substr(std::min<std::size_t>(2, rest_.size()), 4);
        const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
        if (!rest_.starts_with("\\u") || parsed.ptr != digits.data() + 4) {
            return kNoCharacter;
        }
        rest_.remove_prefix(6);
        return unit;
    }

    std::string_view rest_;
    bool compact_;
    bool tooDeep_ = false;
};

}  // namespace

bool IsCompactJson(std::string_view bytes)
{
    Grammar grammar(bytes, /* compact = */ true);
    return !bytes.starts_with('"') && grammar.Value(0) && grammar.Rest().empty();
}

std::optional<JsonFault> FaultOf(std::string_view text, int levels)
{
    Grammar grammar(text, /* compact = */ false);
    const bool isJson = grammar.Value(kMostNesting - levels);
    const std::string_view rest = grammar.Rest();
    const std::size_t position = text.size() - rest.size();
    if (rest.empty()) {
        return isJson ? std::nullopt : std::optional(JsonFault{position, "the JSON ends too early"});
    }
    if (grammar.IsTooDeep()) {
        return JsonFault{position, "too many levels of JSON"};
    }
    return JsonFault{position, FirstCharacter(rest).code == kNoCharacter ? "not UTF-8" : "not JSON"};
}

}  // namespace Corvane::FileTool
