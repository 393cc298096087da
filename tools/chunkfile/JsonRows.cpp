// Rows of NDJSON and of JSON documents.
#include <algorithm>
#include <array>
#include <utility>

#include "chunkfile/Json.h"
#include "chunkfile/JsonRow.h"

namespace Corvane::FileTool {

namespace {

constexpr std::string_view kSpace = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kMostLooked = 65536;               // bytes of a first line
constexpr std::size_t kMostRow = std::size_t{1} << 30U;  // bytes; no record is longer

class NdjsonRows : public RowReader {
public:
    NdjsonRows(TextStream& stream, bool catLines) : stream_(stream), parser_(catLines) {}

    bool Next(Row& row) override
    {
        while (TakeLine()) {
            if (text_.find_first_not_of(kSpace) == std::string_view::npos) {
                continue;
            }
            try {
                parser_.Parse(text_, row);
            } catch (const BadText& error) {
                throw BadRow({line_, error.position + 1}, error.what());
            }
            return true;
        }
        return false;
    }

    Place Begin() const override { return {line_, 1}; }

private:
    // Goes to the next line. What Ctrl-C has cut off is none.
    bool TakeLine()
    {
        stream_.Take(std::exchange(taken_, 0));
        for (std::size_t searched = 0;;) {
            text_ = stream_.Rest();
            const std::size_t end = text_.find('\n', searched);
            searched = text_.size();
            if (end != std::string_view::npos) {
                text_ = text_.substr(0, end);
                break;
            }
            if (searched > kMostRow) {
                throw std::runtime_error("line " + std::to_string(line_ + 1) + " is longer than 1 GiB");
            }
            if (!stream_.Fetch()) {
                text_ = stream_.Rest();  // it may lie elsewhere now
                if (text_.empty() || stream_.IsCut()) {
                    return false;
                }
                break;
            }
        }
        taken_ = std::min(text_.size() + 1, stream_.Rest().size());
        ++line_;
        return true;
    }

    TextStream& stream_;
    JsonRow parser_;
    std::string_view text_;
    std::size_t taken_ = 0;
    std::uint64_t line_ = 0;
};

// The position after the value that begins here, by brackets and quotes alone. The same position if none begins.
std::size_t EndOfValue(std::string_view text, std::size_t at)
{
    const auto endOfString = [text](std::size_t quote) {
        std::size_t end = quote + 1;
        while ((end = text.find_first_of("\"\\", end)) != std::string_view::npos && text[end] == '\\') {
            end += 2;
        }
        return end == std::string_view::npos ? text.size() : end + 1;
    };
    std::size_t depth = 0;
    for (; at < text.size(); ++at) {
        const char byte = text[at];
        if (byte == '"') {
            at = endOfString(at) - 1;
        } else if (byte == '{' || byte == '[') {
            ++depth;
        } else if (depth == 0 && (kSpace.find(byte) != std::string_view::npos ||
                                  std::string_view(",:]}").find(byte) != std::string_view::npos)) {
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

Format FormatOf(TextStream& stream)
{
    for (bool isAll = false;; isAll = !stream.Fetch()) {
        if (stream.Rest().size() < kByteOrderMark.size() && !isAll) {
            continue;
        }
        stream.Take(stream.Rest().starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
        const std::string_view text = stream.Rest();
        const std::size_t begin = text.find_first_not_of(kSpace);
        if (begin != std::string_view::npos && text[begin] != '{') {
            return text[begin] == '[' ? Format::Json : Format::Csv;
        }
        const std::size_t end = begin == std::string_view::npos ? begin : text.find('\n', begin);
        if (isAll || end != std::string_view::npos || text.size() > kMostLooked) {
            const std::string_view line = text.substr(0, end);
            const std::size_t last = line.find_last_not_of(kSpace);
            const bool isOpen = end != std::string_view::npos && line[last] != '}';
            return isOpen ? Format::Json : Format::Ndjson;
        }
    }
}

std::unique_ptr<RowReader> ReadNdjson(TextStream& stream, bool catLines)
{
    return std::make_unique<NdjsonRows>(stream, catLines);
}

std::unique_ptr<RowReader> ReadJson(TextStream& stream, const std::string& pointer, bool catLines)
{
    return std::make_unique<DocumentRows>(stream, pointer, catLines);
}

std::size_t Duplicate(const std::vector<std::string_view>& names)
{
    std::vector<std::pair<std::string_view, std::size_t>> ordered;
    ordered.reserve(names.size());
    for (const std::string_view name : names) {
        ordered.emplace_back(name, ordered.size());
    }
    std::ranges::sort(ordered);
    const auto same = std::ranges::adjacent_find(ordered, {}, &std::pair<std::string_view, std::size_t>::first);
    return same == ordered.end() ? names.size() : same[1].second;
}

std::optional<std::vector<std::string>> PointerTokens(std::string_view pointer)
{
    std::vector<std::string> tokens;
    for (std::size_t i = 0; i < pointer.size(); ++i) {
        const char next = i + 1 < pointer.size() ? pointer[i + 1] : '\0';
        if (pointer[i] == '/') {
            tokens.emplace_back();
        } else if (tokens.empty() || (pointer[i] == '~' && next != '0' && next != '1')) {
            return {};
        } else if (pointer[i] == '~') {
            tokens.back() += next == '0' ? '~' : '/';
            ++i;
        } else {
            tokens.back() += pointer[i];
        }
    }
    return tokens;
}

}  // namespace Corvane::FileTool
