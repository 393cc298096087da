#include "chunkfile/ViewFacts.h"

#include <algorithm>
#include <bit>

#include "chunkfile/Glue.h"

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kMostClasses = 64;

}  // namespace

// Sizes below 2^(bits + 1) have a class each. Above, 2^bits classes share the way to the next power of two.
std::uint64_t SizeClasses::IndexOf(std::uint64_t size, unsigned bits)
{
    const auto width = static_cast<unsigned>(std::bit_width(size));
    const unsigned shift = width > bits + 1 ? width - bits - 1 : 0;
    return (std::uint64_t{shift} << bits) + (size >> shift);
}

std::uint64_t SizeClasses::LeastOf(std::uint64_t index, unsigned bits)
{
    const std::uint64_t octave = index >> bits;
    const std::uint64_t shift = octave == 0 ? 0 : octave - 1;
    return (index - (shift << bits)) << shift;
}

void SizeClasses::Add(std::uint64_t size)
{
    if (last_ == nullptr || size != lastSize_) {
        last_ = &records_[IndexOf(size, kFinest)];
        lastSize_ = size;
    }
    ++*last_;
    least_ = std::min(least_, size);
    most_ = std::max(most_, size);
}

std::vector<SizeClasses::Class> SizeClasses::All() const
{
    if (records_.empty()) {
        return {};
    }
    unsigned bits = kFinest;
    while (IndexOf(most_, bits) - IndexOf(least_, bits) >= kMostClasses) {
        --bits;
    }
    std::vector<Class> classes;
    const std::uint64_t first = IndexOf(least_, bits);
    for (std::uint64_t index = first; index <= IndexOf(most_, bits); ++index) {
        classes.push_back({LeastOf(index, bits), LeastOf(index + 1, bits) - 1, 0});
    }
    for (const auto& [index, records] : records_) {
        classes[IndexOf(LeastOf(index, kFinest), bits) - first].records += records;
    }
    classes.front().least = least_;
    classes.back().most = most_;
    return classes;
}

void ViewFacts::Add(const FoundRecord& record)
{
    map_.Add(record);
    if (record.standing == Standing::Doubtful) {
        return;
    }
    found_ = record.standing == Standing::Found;
    const auto nanoseconds = Glue::NanosecondsOf(record.chunk.GetTimePoint());
    hasTimes_ = nanoseconds.has_value();
    bin_ = &timeline_.At(nanoseconds.value_or(static_cast<std::int64_t>(records_++)));
    (found_ ? bin_->found : bin_->counted).Add({1, record.size});
    sizes_.Add(record.size);
    expected_ = 0;
    // What the function captures fits into it: without memory from the heap for each record.
    Glue::VisitFields(record.chunk, [this](std::string_view name, std::string_view value) { AddField(name, value); });
}

void ViewFacts::Finish(const Survey& survey)
{
    map_.Finish(survey);
    timeline_.Settle();
}

FieldFacts* ViewFacts::FieldOf(std::string_view name)
{
    if (expected_ < fields_.size() && fields_[expected_].name == name) {
        return &fields_[expected_++];
    }
    const auto place = places_.find(name);
    if (place != places_.end()) {
        expected_ = place->second + 1;
        return &fields_[place->second];
    }
    if (fields_.size() == Survey::kMostFields) {
        lacksFields_ = true;
        return nullptr;
    }
    places_.emplace(name, fields_.size());
    fields_.push_back({std::string(name), 0, 0, 0, SIZE_MAX});
    expected_ = fields_.size();
    return &fields_.back();
}

void ViewFacts::AddField(std::string_view name, std::string_view value)
{
    FieldFacts* const field = FieldOf(name);
    if (field == nullptr) {
        return;
    }
    ++(found_ ? field->found : field->records);
    const auto number = NumberIn(value);
    if (!number) {
        return;
    }
    if (field->numbers++ == 0 && bands_ < kMostBands) {
        field->band = bands_++;
    }
    if (field->band != SIZE_MAX) {
        bin_->bands.resize(std::max(bin_->bands.size(), field->band + 1));
        bin_->bands[field->band].Add(*number, value);
    }
}

}  // namespace Corvane::FileTool
