// Rows of NDJSON, and what the formats share.
#include <algorithm>
#include <utility>

#include "chunkfile/JsonRow.h"

namespace Corvane::FileTool {

namespace {

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

}  // namespace

Format FormatOf(TextStream& stream)
{
    while (stream.Rest().size() < kByteOrderMark.size() && stream.Fetch()) {
    }
    stream.Take(stream.Rest().starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
    for (bool isAll = false;; isAll = !stream.Fetch()) {
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

std::size_t Duplicate(const Glue::Fields& fields)
{
    using Numbered = std::pair<std::string_view, std::size_t>;
    std::vector<Numbered> names;
    names.reserve(fields.size());
    for (const auto& field : fields) {
        names.emplace_back(field.first, names.size());
    }
    std::ranges::sort(names);
    const auto same = std::ranges::adjacent_find(names, {}, &Numbered::first);
    return same == names.end() ? fields.size() : same[1].second;
}

std::string SeparatorHint(std::string_view onlyName)
{
    const bool has = onlyName.find_first_of(";\t") != std::string_view::npos;
    return has ? "; commas separate columns, not semicolons or tabs" : "";
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
