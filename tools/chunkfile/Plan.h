#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Corvane/File/DataChunkFileScanner.h"
#include "Corvane/Time/TimePoint.h"
#include "chunkfile/EqualTimes.h"
#include "chunkfile/FileBytes.h"
#include "chunkfile/Output.h"
#include "chunkfile/Walk.h"

namespace Corvane::FileTool {

/// The records that recover or copy takes, in their order: first which, then, as a ChunkSource, their chunks.
///
/// - **Memory**: 24 bytes a record on the reference platform; 8 more if times do not ascend.
/// - **Errors**: Members throw std::runtime_error with the file's name.
class Plan : public ChunkSource {
public:
    Plan(const Options& options, Terminal& terminal) : options_(options), terminal_(terminal) {}

    /// Opens a further source, which stays open.
    const Input& Open(const std::string& path);

    /// Takes a record of the source that was opened last.
    void Add(const FoundRecord& record);

    /// Call after the last Add. Drops records that equal an earlier one byte for byte, and says how many. Sorts with
    /// --sort. Throws if others share their time, unless --on-equal-time permits that.
    void Decide();

    std::uint64_t Size() const { return order_ ? order_->size() : records_.size(); }

    const Pellin::DataChunk* Next() override;
    std::string Where() override;
    void Compare(const WrittenRecord& written) override;
    void Confirm() override;
    bool HasDistinctTimes() const override { return ascends_; }

private:
    struct Record {
        Time::TimePoint time;
        std::uint64_t position;
        std::uint64_t index;  // in its source
    };

    // The records of one source, read again.
    struct Reader {
        std::optional<File::DataChunkFileScanner> scanner;
        std::uint64_t next = 0;  // where the scanner stands
    };

    struct Source {
        explicit Source(const std::string& path) : input(path), bytes(input) {}

        Input input;
        FileBytes bytes;
        std::uint64_t firstRecord = 0;
        Reader forWriting;
        Reader forProof;
    };

    // A record is meant by its place in records_.
    std::uint64_t Which(std::uint64_t number) const { return order_ ? (*order_)[number] : number; }
    Source& SourceOf(std::uint64_t record);
    std::string WhereIs(std::uint64_t record);
    const Pellin::DataChunk& Read(std::uint64_t record, Reader Source::* reader);
    std::string BytesOf(std::uint64_t record);
    Glue::Fields Chosen(const Pellin::DataChunk& chunk) const;
    bool HasItsFields(const WrittenRecord& written, std::uint64_t record);

    std::vector<std::uint64_t>& SortByTime();
    std::uint64_t DropCopies(const std::uint64_t* begin, const std::uint64_t* end, std::vector<bool>& dropped);

    const Options& options_;
    Terminal& terminal_;
    std::deque<Source> sources_;
    std::deque<Record> records_;                       // as they lie in the sources
    std::optional<std::vector<std::uint64_t>> order_;  // which of them; nothing: all
    bool ascends_ = true;
    std::uint64_t given_ = 0;
    std::uint64_t compared_ = 0;
    std::unique_ptr<Pellin::DataChunk> made_;
    std::optional<FileBytes> fresh_;
};

}  // namespace Corvane::FileTool
