// Rows of a JSON document.
#include <algorithm>
#include <array>
#include <utility>

#include "chunkfile/Json.h"
#include "chunkfile/JsonRow.h"

namespace Corvane::FileTool {

namespace {

// The position after the string whose quote is here.
std::size_t EndOfString(std::string_view text, std::size_t quote)
{
    std::size_t end = quote + 1;
    while ((end = text.find_first_of("\"\\", end)) != std::string_view::npos && text[end] == '\\') {
        end += 2;
    }
    return end == std::string_view::npos ? text.size() : end + 1;
}

// The position after the value that begins here, by brackets and quotes alone. The same position if none begins.
std::size_t EndOfValue(std::string_view text, std::size_t at)
{
    constexpr std::string_view separators = " \t\r\n,:]}";
    std::size_t depth = 0;
    for (; at < text.size(); ++at) {
        const char byte = text[at];
        if (byte == '"') {
            at = EndOfString(text, at) - 1;
        } else if (byte == '{' || byte == '[') {
            ++depth;
        } else if (depth == 0 && separators.find(byte) != std::string_view::npos) {
            return at;
        } else if (byte == '}' || byte == ']') {
            --depth;
        } else {
            continue;
        }
        if (depth == 0) {
            return at + 1;
        }
    }
    return at;
}

// Finds the rows by their brackets, so that one bad row does not hide the others.
class DocumentRows : public RowReader {
public:
    DocumentRows(TextStream& stream, const std::string& pointer, bool catLines);

    bool Next(Row& row) override;
    Place Begin() const override { return PlaceOf(begin_); }

private:
    void GoInto(const std::string& token);
    bool TakeSeparator();
    void CheckFrame() const;
    Place PlaceOf(std::size_t position) const;

    // Skips space, then takes this byte if it comes next.
    bool Take(char wanted)
    {
        at_ = std::min(text_.find_first_not_of(kSpace, at_), text_.size());
        const bool found = at_ < text_.size() && text_[at_] == wanted;
        at_ += found ? 1 : 0;
        return found;
    }

    std::string_view TakeValue()
    {
        begin_ = std::min(text_.find_first_not_of(kSpace, at_), text_.size());
        at_ = EndOfValue(text_, begin_);
        return text_.substr(begin_, at_ - begin_);
    }

    [[noreturn]] void Refuse(std::size_t position, const std::string& reason) const
    {
        throw BadRow(PlaceOf(position), reason);
    }

    TextStream& stream_;
    JsonRow parser_;
    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t first_ = 0;  // after the bracket that opens the array
    std::size_t begin_ = 0;  // of the row
    bool hasBegun_ = false;
    bool isOver_ = false;
    mutable std::size_t counted_ = 0;  // bytes whose lines are counted
    mutable std::size_t lineBegin_ = 0;
    mutable std::uint64_t line_ = 1;
};

DocumentRows::DocumentRows(TextStream& stream, const std::string& pointer, bool catLines)
    : stream_(stream), parser_(catLines)
{
    while (stream.Fetch()) {
    }
    text_ = stream.Rest();
    for (const std::string& token : PointerTokens(pointer).value_or(std::vector<std::string>())) {
        GoInto(token);
    }
    if (!Take('[')) {
        Refuse(at_, pointer.empty() ? "the document is no array; --rows names one in it" : "--rows names no array");
    }
    first_ = at_;
}

// Goes to the value of this name, or of this index.
void DocumentRows::GoInto(const std::string& token)
{
    if (Take('{')) {
        do {
            const std::string name = std::string("[").append(TakeValue()) + "]";
            if (Take(':') && JsonAt(name, std::array<std::string, 1>{"0"}) == token) {
                return;
            }
            TakeValue();
        } while (Take(','));
    } else if (Take('[')) {
        for (std::size_t index = 0; std::to_string(index) != token; ++index) {
            if (TakeValue().empty() || !Take(',')) {
                Refuse(at_, "--rows names no array");
            }
        }
        return;
    }
    Refuse(at_, "--rows names no array");
}

bool DocumentRows::Next(Row& row)
{
    if (isOver_ || !TakeSeparator()) {
        return false;
    }
    const std::string_view text = TakeValue();
    const bool isWhole = at_ != text_.size();
    if (text.empty() && isWhole) {
        Refuse(at_, "not JSON");
    }
    try {
        parser_.Parse(text, row);
    } catch (const BadText& error) {
        isOver_ = !isWhole;
        if (!isWhole && stream_.IsCut()) {
            stream_.Take(begin_);
            return false;
        }
        Refuse(begin_ + error.position, error.what());
    }
    return true;
}

// Returns false after the last row.
bool DocumentRows::TakeSeparator()
{
    const bool isFirst = !std::exchange(hasBegun_, true);
    if (isFirst ? !Take(']') : Take(',')) {
        return true;
    }
    isOver_ = true;
    if (!isFirst && !Take(']')) {
        if (at_ == text_.size() && stream_.IsCut()) {
            stream_.Take(at_);
            return false;
        }
        Refuse(at_, at_ == text_.size() ? "the JSON ends too early" : "not JSON; the rest of the document is not read");
    }
    CheckFrame();
    return false;
}

// What is around the rows must be JSON too.
void DocumentRows::CheckFrame() const
{
    const std::size_t last = at_ - 1;  // the bracket that closes the array
    const std::string frame = std::string(text_.substr(0, first_)).append(text_.substr(last));
    if (const auto fault = FaultOf(frame, kMostNesting)) {
        Refuse(fault->position < first_ ? fault->position : fault->position + last - first_, fault->reason);
    }
}

// Counts on from the last place.
Place DocumentRows::PlaceOf(std::size_t position) const
{
    if (position < counted_) {
        counted_ = lineBegin_ = 0;
        line_ = 1;
    }
    const std::string_view before = text_.substr(0, position);
    for (std::size_t end = counted_; (end = before.find('\n', end)) != std::string_view::npos;) {
        lineBegin_ = ++end;
        ++line_;
    }
    counted_ = position;
    return {line_, position - lineBegin_ + 1};
}

}  // namespace

std::unique_ptr<RowReader> ReadJson(TextStream& stream, const std::string& pointer, bool catLines)
{
    return std::make_unique<DocumentRows>(stream, pointer, catLines);
}

}  // namespace Corvane::FileTool
