// chunkfile import: rows of text as chunks.
#include <deque>
#include <functional>
#include <stdexcept>
#include <utility>

#include "chunkfile/Output.h"
#include "chunkfile/RowTimes.h"
#include "chunkfile/Rows.h"

namespace Corvane::FileTool {

using Pellin::DataChunk;

namespace {

constexpr std::uint64_t kMostShown = 10;  // bad rows; -v shows all

std::uint64_t Mixed(std::uint64_t word)
{
    constexpr std::uint64_t odd = 0x9E3779B97F4A7C15;
    word *= odd;
    return (word ^ (word >> 32U)) * odd;
}

// Time and fields of a row, or of the record made of it, in 64 bits. The fields may come in any order. Standard input
// cannot be read twice, so this is what is kept of a row until its record is there.
class Digest {
public:
    void Add(std::string_view name, std::string_view value)
    {
        const std::hash<std::string_view> hash;
        fields_ += Mixed(Mixed(hash(name)) + hash(value));
    }

    std::uint64_t With(std::int64_t time) const
    {
        return OfFields(Mixed(fields_)) | Mixed(static_cast<std::uint64_t>(time)) >> 32U;
    }

    // The part of it that has no time.
    static std::uint64_t OfFields(std::uint64_t digest) { return digest & ~std::uint64_t{0xFFFFFFFF}; }

private:
    std::uint64_t fields_ = 0;
};

std::uint64_t DigestOf(const DataChunk& chunk)
{
    Digest digest;
    Glue::VisitFields(chunk, [&](std::string_view name, std::string_view value) { digest.Add(name, value); });
    return digest.With(Glue::NanosecondsOf(chunk.GetTimePoint()).value_or(0));
}

std::uint64_t DigestOf(std::int64_t time, const Glue::Fields& fields)
{
    Digest digest;
    for (const auto& [name, value] : fields) {
        digest.Add(name, value);
    }
    return digest.With(time);
}

const char* NameOf(Format format)
{
    if (format == Format::Csv) {
        return "CSV";
    }
    return format == Format::Json ? "JSON" : "NDJSON";
}

class RowChunks : public ChunkSource {
public:
    RowChunks(const Options& options, Terminal& terminal)
        : options_(options),
          terminal_(terminal),
          path_(options.paths.front()),
          name_(path_ == "-" ? "standard input" : path_),
          times_(options)
    {
    }

    const DataChunk* Next() override;
    std::string Where() override { return name_ + ": line " + std::to_string(reader_->Begin().line); }
    void Compare(const WrittenRecord& record) override;
    bool EndsAtInterrupt() const override { return path_ == "-"; }

    // Says what was read and what was not.
    Exit Report(const Written& written);

private:
    void Open();
    bool TakeRow();
    void Skip(const BadRow& bad);
    std::string TextOf(const BadRow& bad) const
    {
        const auto& [line, column] = bad.place;
        return ErrorText(name_,
                         "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + bad.what());
    }
    void Tell(const std::string& text) { terminal_.Error(ErrorText(name_, text)); }

    const Options& options_;
    Terminal& terminal_;
    std::string path_;
    std::string name_;
    RowTimes times_;
    std::unique_ptr<TextStream> stream_;
    std::unique_ptr<RowReader> reader_;
    Format format_ = Format::Ndjson;
    Row row_;
    std::unique_ptr<DataChunk> chunk_;
    std::deque<std::uint64_t> digests_;  // of the rows that were not compared yet
    std::uint64_t compared_ = 0;
    std::uint64_t rows_ = 0;
    std::uint64_t bad_ = 0;
};

const DataChunk* RowChunks::Next()
{
    if (reader_ == nullptr) {
        Open();
    }
    for (;;) {
        try {
            return TakeRow() ? chunk_.get() : nullptr;
        } catch (const BadRow& bad) {
            Skip(bad);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(ErrorText(name_, error.what()));
        }
    }
}

// Opened late, so that Ctrl-C can end what is read here.
void RowChunks::Open()
{
    try {
        stream_ = std::make_unique<TextStream>(path_);
        format_ = FormatOf(*stream_);
        if (options_.format != Format::Table) {
            format_ = options_.format;
        } else if (options_.import.rows) {
            format_ = Format::Json;
        }
        reader_ = ReadRows(*stream_, format_, options_.import.rows.value_or(""), !options_.import.time.has_value());
    } catch (const BadRow& bad) {
        throw std::runtime_error(TextOf(bad));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(ErrorText(name_, error.what()));
    }
}

// Makes the chunk of the next row.
bool RowChunks::TakeRow()
{
    if (!reader_->Next(row_)) {
        return false;
    }
    try {
        const std::int64_t time = times_.Take(row_);
        chunk_ = Glue::MakeChunk(time, row_.fields);
        if (!options_.dryRun) {
            digests_.push_back(DigestOf(time, row_.fields));
        }
    } catch (const std::runtime_error& error) {
        throw BadRow(reader_->Begin(), error.what());
    } catch (const std::length_error& error) {
        throw BadRow(reader_->Begin(), error.what());
    }
    ++rows_;
    terminal_.Progress(name_, stream_->Taken(), stream_->Size());
    return true;
}

void RowChunks::Skip(const BadRow& bad)
{
    if (!options_.import.skipBad) {
        throw std::runtime_error(TextOf(bad));
    }
    if (++bad_ <= kMostShown || options_.verbose) {
        terminal_.Error(TextOf(bad));
    }
}

void RowChunks::Compare(const WrittenRecord& record)
{
    for (; compared_ < record.number; ++compared_) {
        digests_.pop_front();  // left out: its time was held already
    }
    const std::uint64_t expected = digests_.front();
    const std::uint64_t found = DigestOf(record.chunk);
    const bool same = record.shifted ? Digest::OfFields(expected) == Digest::OfFields(found) : expected == found;
    if (!same) {
        throw std::runtime_error(
            ErrorText(options_.output, record.position, record.number, "the record differs from its row"));
    }
    digests_.pop_front();
    ++compared_;
}

Exit RowChunks::Report(const Written& written)
{
    if (rows_ != 0 && !options_.quiet) {
        Tell(std::string(NameOf(format_)) + "; times: " + times_.Forms());
    }
    const bool isCut = stream_->IsCut() && !stream_->Rest().empty();
    if (isCut) {
        Tell("the last row was not whole and is left out");
    }
    if (bad_ != 0) {
        Tell(Number(bad_, "bad row is", "bad rows are") + " left out");
    }
    return isCut || bad_ + written.skipped != 0 ? Exit::Found : Exit::Fine;
}

void CheckOptions(const Options& options)
{
    const auto chunk = Glue::MakeChunk(0, {});
    if (chunk == nullptr || !Glue::NanosecondsOf(chunk->GetTimePoint()) ||
        !Glue::VisitFields(*chunk, [](std::string_view /*name*/, std::string_view /*value*/) {})) {
        throw std::invalid_argument("import needs a platform that makes chunks of times and fields, and shows them");
    }
    if (options.import.rows && options.format != Format::Table && options.format != Format::Json) {
        throw std::invalid_argument("--rows has a meaning for --format json only");
    }
    if (const std::string pointer = options.import.rows.value_or(""); !PointerTokens(pointer)) {
        throw std::invalid_argument("--rows: " + pointer + " is no JSON pointer");
    }
}

}  // namespace

Exit Import(const Options& options, Terminal& terminal)
{
    Options complete = options;
    if (complete.paths.empty()) {
        complete.paths = {"-"};  // WriteChunks compares OUT with it, too
    }
    CheckOptions(complete);
    RowChunks rows(complete, terminal);
    const Written written = WriteChunks(rows, complete, terminal);
    return rows.Report(written);
}

}  // namespace Corvane::FileTool
