#include "chunkfile/Plan.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"

namespace Corvane::FileTool {

using Pellin::DataChunk;

const Input& Plan::Open(const std::string& path)
{
    try {
        sources_.emplace_back(path);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(ErrorText(path == "-" ? "standard input" : path, error.what()));
    }
    sources_.back().firstRecord = records_.size();
    return sources_.back().input;
}

void Plan::Add(const FoundRecord& record)
{
    const Time::TimePoint time = record.chunk.GetTimePoint();
    ascends_ = ascends_ && (records_.empty() || records_.back().time < time);
    records_.push_back({time, record.position, record.index});
}

void Plan::Decide()
{
    if (ascends_) {
        return;
    }
    std::vector<std::uint64_t>& order = SortByTime();
    const auto isBefore = [this](std::uint64_t left, std::uint64_t right) {
        return records_[left].time < records_[right].time;
    };
    std::vector<bool> dropped(records_.size());
    std::uint64_t copies = 0;
    const std::uint64_t* const last = order.data() + order.size();
    for (const std::uint64_t* begin = order.data(); begin != last;) {
        const std::uint64_t* const end =
            std::find_if(begin, last, [&](auto record) { return isBefore(*begin, record); });
        copies += end - begin > 1 ? DropCopies(begin, end, dropped) : 0;
        begin = end;
    }
    if (!options_.sort) {
        std::iota(order.begin(), order.end(), std::uint64_t{0});
    }
    std::erase_if(order, [&](std::uint64_t record) { return dropped[record]; });
    if (copies != 0) {
        Say(terminal_, options_, options_.output,
            Records(copies) + " left out: equal to an earlier one, byte for byte");
    }
}

// Records of one time stay in their order.
std::vector<std::uint64_t>& Plan::SortByTime()
{
    std::vector<std::uint64_t>& order = order_.emplace(records_.size());
    std::iota(order.begin(), order.end(), std::uint64_t{0});
    std::sort(order.begin(), order.end(), [this](std::uint64_t left, std::uint64_t right) {
        const bool isBefore = records_[left].time < records_[right].time;
        return isBefore || (left < right && !(records_[right].time < records_[left].time));
    });
    return order;
}

// The records share their time. Of those with the same hash, only the first is compared, because hostile ones would
// take quadratic time.
std::uint64_t Plan::DropCopies(const std::uint64_t* begin, const std::uint64_t* end, std::vector<bool>& dropped)
{
    std::uint64_t copies = 0;
    std::unordered_map<std::size_t, std::uint64_t> firsts;
    for (const std::uint64_t* record = begin; record != end; ++record) {
        const std::string bytes = BytesOf(*record);
        const auto [first, isNew] = firsts.emplace(std::hash<std::string>()(bytes), *record);
        if (!isNew && bytes == BytesOf(first->second)) {
            dropped[*record] = true;
            ++copies;
        } else if (record != begin && options_.onEqualTime == OnEqualTime::Stop) {
            throw std::runtime_error(WhereIs(*record) + ": " + WhereIs(*begin) +
                                     " has the same time; see --on-equal-time");
        }
    }
    return copies;
}

std::string Plan::BytesOf(std::uint64_t record)
{
    const std::uint64_t size = Read(record, &Source::forWriting).GetSizeOnFile();
    return std::string(SourceOf(record).bytes.At(records_[record].position, size));
}

Plan::Source& Plan::SourceOf(std::uint64_t record)
{
    const auto isAfter = [](std::uint64_t number, const Source& source) { return number < source.firstRecord; };
    return *std::prev(std::upper_bound(sources_.begin(), sources_.end(), record, isAfter));
}

std::string Plan::WhereIs(std::uint64_t record)
{
    const Record& place = records_[record];
    return PlaceText(SourceOf(record).input.Name(), place.position, place.index);
}

// Reads on from the record before, where the records lie back to back.
const DataChunk& Plan::Read(std::uint64_t record, Reader Source::* reader)
{
    Source& source = SourceOf(record);
    auto& [scanner, next] = source.*reader;
    if (!scanner) {
        scanner.emplace(source.input.Path());
    }
    const std::uint64_t position = records_[record].position;
    if (next != position) {
        scanner->GoTo(position);
    }
    if (!scanner->Next()) {
        throw std::runtime_error(WhereIs(record) + ": the record was good before, and is no longer");
    }
    next = position + scanner->GetChunk().GetSizeOnFile();
    return scanner->GetChunk();
}

const DataChunk* Plan::Next()
{
    if (given_ == Size()) {
        return nullptr;
    }
    terminal_.Progress(options_.output, given_ + compared_, 2 * Size());
    const DataChunk& chunk = Read(Which(given_++), &Source::forWriting);
    if (options_.fields.empty()) {
        return &chunk;
    }
    made_ = Glue::MakeChunk(Glue::NanosecondsOf(chunk.GetTimePoint()).value_or(0), Chosen(chunk));
    return made_.get();
}

std::string Plan::Where()
{
    return WhereIs(Which(given_ - 1));
}

Glue::Fields Plan::Chosen(const DataChunk& chunk) const
{
    Glue::Fields fields = FieldsOf(chunk);
    const auto& names = options_.fields;
    if (!names.empty()) {
        std::erase_if(fields, [&](const auto& field) {
            return std::find(names.begin(), names.end(), field.first) == names.end();
        });
    }
    return fields;
}

void Plan::Compare(const WrittenRecord& written)
{
    terminal_.Progress(options_.output, given_ + compared_++, 2 * Size());
    if (!fresh_ || written.position == File::kHeaderSize) {
        fresh_.emplace(written.file);
    }
    const std::uint64_t record = Which(written.number);
    const bool isWhole = !written.shifted && options_.fields.empty();
    const bool isEqual =
        isWhole ? AreEqual(SourceOf(record).bytes, records_[record].position, *fresh_, written.position, written.size)
                : HasItsFields(written, record);
    if (!isEqual) {
        throw std::runtime_error(WhereIs(record) + ": its copy at byte " + std::to_string(written.position) + " of " +
                                 options_.output + " differs");
    }
}

// It has the record's time, or a later one if it was shifted.
bool Plan::HasItsFields(const WrittenRecord& written, std::uint64_t record)
{
    const DataChunk& chunk = Read(record, &Source::forProof);
    const Time::TimePoint time = chunk.GetTimePoint();
    const Time::TimePoint writtenTime = written.chunk.GetTimePoint();
    return !(writtenTime < time) && (time < writtenTime) == written.shifted && FieldsOf(written.chunk) == Chosen(chunk);
}

void Plan::Confirm()
{
    for (const Source& source : sources_) {
        RefuseChanged(source.input);
    }
}

}  // namespace Corvane::FileTool
