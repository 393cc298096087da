// Rows of CSV: RFC 4180 with a line of names.
#include <algorithm>
#include <utility>

#include "chunkfile/Commands.h"
#include "chunkfile/Json.h"
#include "chunkfile/Rows.h"

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kMostColumns = 1'000'000;
constexpr std::size_t kMostRow = std::size_t{1} << 30U;  // bytes; no record is longer
constexpr int kNone = -1;                                // no byte

class CsvRows : public RowReader {
public:
    explicit CsvRows(TextStream& stream) : stream_(stream) { TakeNames(); }

    bool Next(Row& row) override;
    Place Begin() const override { return {begin_, 1}; }

private:
    // Bytes of the present row.
    struct Position {
        std::size_t at = 0;         // in stream_.Rest()
        std::size_t lineBegin = 0;  // of the line that `at` is in
        std::uint64_t line = 1;
    };

    void TakeNames();
    bool GoToNextRow();
    bool TakeCells(std::size_t least, std::size_t most);
    void TakeCell(std::string& cell)
    {
        cell.clear();
        Take('"') ? TakeQuoted(cell) : TakePlain(cell);
    }

    void TakePlain(std::string& cell);
    void TakeQuoted(std::string& cell);
    bool TakeLineEnd();

    // A bad row ends with the line of this position.
    [[noreturn]] void Refuse(Position position, const std::string& reason)
    {
        here_ = position;
        isBad_ = true;
        throw BadRow(PlaceOf(position), reason);
    }

    static Place PlaceOf(Position position) { return {position.line, position.at - position.lineBegin + 1}; }

    std::string_view Rest() const { return stream_.Rest().substr(here_.at); }

    // Fetches more. Returns false at the end.
    bool Fetch()
    {
        if (stream_.Rest().size() > kMostRow) {
            throw std::runtime_error("the row of line " + std::to_string(begin_) + " is longer than 1 GiB");
        }
        return stream_.Fetch();
    }

    int Peek() { return Rest().empty() && !Fetch() ? kNone : static_cast<unsigned char>(Rest().front()); }

    bool Take(char wanted)
    {
        const bool found = Peek() == wanted;
        here_.at += found ? 1 : 0;
        return found;
    }

    // Moves on over the bytes.
    void Pass(std::string_view bytes)
    {
        for (std::size_t at = 0; (at = bytes.find('\n', at)) != std::string_view::npos;) {
            here_.lineBegin = here_.at + ++at;
            ++here_.line;
        }
        here_.at += bytes.size();
    }

    TextStream& stream_;
    std::vector<std::string> names_;
    std::vector<std::string> cells_;
    std::vector<Position> begins_;  // of the cells of this row
    Position here_;
    std::uint64_t begin_ = 1;  // the line in which the row begins
    bool isBad_ = false;       // the rest of the line belongs to a bad row
};

bool CsvRows::Next(Row& row)
{
    if (names_.empty() || !GoToNextRow() || !TakeCells(names_.size(), names_.size())) {
        return false;
    }
    row.fields.resize(names_.size());
    for (std::size_t i = 0; i < names_.size(); ++i) {
        auto& [name, value] = row.fields[i];
        if (name != names_[i]) {
            name = names_[i];
        }
        value.swap(cells_[i]);
        DecodeBase64Mark(value);
    }
    return true;
}

void CsvRows::TakeNames()
{
    if (Rest().empty() && !Fetch()) {
        Refuse(here_, "no line of names");
    }
    if (!TakeCells(1, kMostColumns)) {
        return;
    }
    names_ = cells_;
    std::for_each(names_.begin(), names_.end(), DecodeBase64Mark);
    Glue::Fields fields;
    for (const std::string& name : names_) {
        fields.emplace_back(name, "");
    }
    if (const std::size_t second = Duplicate(fields); second != names_.size()) {
        Refuse(begins_[second], "a second column of the name " + names_[second]);
    }
}

// Returns false at the end.
bool CsvRows::GoToNextRow()
{
    while (std::exchange(isBad_, false)) {
        const std::size_t end = Rest().find('\n');
        Pass(Rest().substr(0, end == std::string_view::npos ? end : end + 1));
        isBad_ = end == std::string_view::npos && stream_.Fetch();
        stream_.Take(std::exchange(here_.at, 0));
    }
    stream_.Take(std::exchange(here_.at, 0));
    here_.lineBegin = 0;
    begin_ = here_.line;
    return !Rest().empty() || Fetch();
}

// Takes a row. Returns false if Ctrl-C has cut it.
bool CsvRows::TakeCells(std::size_t least, std::size_t most)
{
    begins_.clear();
    do {
        if (begins_.size() == most) {
            const std::string hint = names_.size() == 1 ? SeparatorHint(names_.front()) : "";
            Refuse(here_, "more than " + Number(most, "column", "columns") + hint);
        }
        if (begins_.size() == cells_.size()) {
            cells_.emplace_back();
        }
        begins_.push_back(here_);
        TakeCell(cells_[begins_.size() - 1]);
    } while (Take(','));
    if (Peek() == kNone && stream_.IsCut()) {
        return false;
    }
    if (begins_.size() < least) {
        Refuse(here_, Number(begins_.size(), "column", "columns") + " instead of " + std::to_string(least));
    }
    return TakeLineEnd();
}

void CsvRows::TakePlain(std::string& cell)
{
    const auto ends = [](char byte) { return byte == ',' || byte == '\n' || byte == '\r' || byte == '"'; };
    std::string_view plain;
    do {
        plain = Rest();
        plain = plain.substr(0, static_cast<std::size_t>(std::ranges::find_if(plain, ends) - plain.begin()));
        cell.append(plain);
        here_.at += plain.size();
    } while (Rest().empty() && Fetch());
    if (Peek() == '"') {
        Refuse(here_, "a quote in a value that does not begin with one");
    }
}

// After the quote that opens the cell.
void CsvRows::TakeQuoted(std::string& cell)
{
    do {
        std::size_t quote = 0;
        while ((quote = Rest().find('"')) == std::string_view::npos) {
            cell.append(Rest());
            Pass(Rest());
            if (Fetch()) {
                continue;
            }
            if (stream_.IsCut()) {
                return;
            }
            Refuse(begins_.back(), "this quote is not closed");
        }
        cell.append(Rest().substr(0, quote));
        Pass(Rest().substr(0, quote + 1));
    } while (Take('"') && (cell += '"', true));
    if (const int next = Peek(); next != ',' && next != '\n' && next != '\r' && next != kNone) {
        Refuse(here_, "text after a closed quote");
    }
}

// Takes the end of a row. Returns false if Ctrl-C comes before it.
bool CsvRows::TakeLineEnd()
{
    const Position end = here_;
    const bool hasReturn = Take('\r');
    if (Take('\n')) {
        ++here_.line;
        here_.lineBegin = here_.at;
        return true;
    }
    if (Peek() == kNone && stream_.IsCut()) {
        return false;
    }
    if (hasReturn) {
        Refuse(end, "a carriage return without line feed");
    }
    return true;
}

}  // namespace

std::unique_ptr<RowReader> ReadCsv(TextStream& stream)
{
    return std::make_unique<CsvRows>(stream);
}

}  // namespace Corvane::FileTool
