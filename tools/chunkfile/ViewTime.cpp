#include "chunkfile/ViewTime.h"

#include <algorithm>

#include "chunkfile/Commands.h"
#include "chunkfile/Html.h"
#include "chunkfile/Times.h"
#include "chunkfile/ViewCharts.h"

namespace Corvane::FileTool {

using Html::Digits;
using Html::Prose;

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kMinute = 60 * kSecond;
constexpr std::int64_t kDay = 1440 * kMinute;
constexpr std::uint64_t kTicks = 5;

// RFC 3339 without zeros at the end of the fraction.
std::string ShortTime(std::int64_t nanoseconds)
{
    std::string text;
    AppendTime(text, nanoseconds);
    text.erase(text.find_last_not_of("0.", text.size() - 2) + 1);
    const std::size_t seconds = 19;
    if (text.size() < seconds) {  // a zero before the fraction
        text.append(std::string(":00:00").substr(6 - (seconds - text.size())));
    }
    return text += 'Z';
}

// The part of a time that changes from tick to tick.
std::string TickTime(std::int64_t nanoseconds, std::int64_t step)
{
    const std::string text = ShortTime(nanoseconds);
    std::string day = text.substr(0, 10);
    const std::string time = text.substr(11, text.size() - 12);
    if (step >= kDay || time == "00:00:00") {
        return day;
    }
    return step >= kMinute ? time.substr(0, 5) : time;
}

// Goes through all places of the axis, from left to right.
class Axis {
public:
    explicit Axis(const ViewFacts& facts)
        : facts_(facts),
          first_(facts.Time().Bins().begin()->first),
          length_(facts.Time().Length()),
          width_(facts.Time().Width())
    {
    }

    std::uint64_t Length() const { return length_; }

    /// The bin at this place; null if it is empty.
    const Bin* At(std::uint64_t place) const
    {
        const auto& bins = facts_.Time().Bins();
        const auto bin = bins.find(first_ + static_cast<std::int64_t>(place));
        return bin == bins.end() ? nullptr : &bin->second;
    }

    std::string NameOf(std::uint64_t place) const
    {
        return facts_.HasTimes() ? ShortTime(BeginOf(place)) : Digits(static_cast<std::uint64_t>(BeginOf(place)));
    }

    std::string WidthText() const
    {
        const auto width = static_cast<std::uint64_t>(width_);
        std::string text = DurationText(width);
        const std::size_t point = text.find('.');
        const std::size_t space = text.find(' ');
        if (point < space) {  // widths are round: 20.0 s is 20 s
            text.erase(point, space - point);
        }
        return facts_.HasTimes() ? text : Records(width);
    }

    const char* Name() const { return facts_.HasTimes() ? "from time (UTC)" : "from record"; }

    std::vector<Charts::Tick> Ticks() const
    {
        const std::int64_t step = Timeline::RoundWidth(width_, static_cast<std::uint64_t>(width_) * (length_ / kTicks));
        std::vector<Charts::Tick> ticks;
        for (std::uint64_t place = 0; place < length_; ++place) {
            if ((first_ + static_cast<std::int64_t>(place)) % (step / width_) == 0) {
                const double share = static_cast<double>(place) / static_cast<double>(length_);
                ticks.emplace_back(share, facts_.HasTimes() ? TickTime(BeginOf(place), step) : NameOf(place));
            }
        }
        return ticks;
    }

private:
    // The first bin may begin before what can be told.
    std::int64_t BeginOf(std::uint64_t place) const
    {
        std::int64_t begin = 0;
        const bool overflows = __builtin_mul_overflow(first_ + static_cast<std::int64_t>(place), width_, &begin);
        return overflows ? INT64_MIN : begin;
    }

    const ViewFacts& facts_;
    std::int64_t first_;
    std::uint64_t length_;
    std::int64_t width_;
};

std::string Caption(const std::string& text)
{
    return "<figcaption>" + text + "</figcaption>\n";
}

// Of the two colours, if there are two.
std::string LegendOf(const std::vector<Html::Row>& rows)
{
    const bool found = std::any_of(rows.begin(), rows.end(), [](const Html::Row& row) { return row[3] != "0"; });
    return found ? Charts::Swatch(ByteKind::Records) + "counted" + Charts::Swatch(ByteKind::Found) + "after damage"
                 : "";
}

}  // namespace

std::string TimeSection(const ViewFacts& facts)
{
    const Axis axis(facts);
    std::vector<Charts::Column> records(axis.Length());
    std::vector<Charts::Column> bytes(axis.Length());
    std::vector<Html::Row> rows;
    for (std::uint64_t place = 0; place < axis.Length(); ++place) {
        if (const Bin* const bin = axis.At(place); bin != nullptr) {
            const std::string tip = axis.NameOf(place) + ": ";
            const auto& [counted, found, bands] = *bin;
            records[place] = {counted.records, found.records, tip + Records(counted.records + found.records)};
            bytes[place] = {counted.bytes, found.bytes, tip + Bytes(counted.bytes + found.bytes)};
            rows.push_back({axis.NameOf(place), Digits(counted.records), Digits(counted.bytes), Digits(found.records),
                            Digits(found.bytes)});
        }
    }
    const bool times = facts.HasTimes();
    const std::string over = times ? " over time" : " in the order of the file";
    const std::string each = "Each column is " + axis.WidthText() + (times ? ", in UTC." : ".");
    return "<section id=\"time\"><h2>Records and bytes" + over + "</h2>\n<p class=\"soft\">" + each + "</p>\n<figure>" +
           Caption("Records" + LegendOf(rows)) + Charts::Columns("Records" + over, records, axis.Ticks(), false) +
           Caption("Bytes") + Charts::Columns("Bytes of records" + over, bytes, axis.Ticks(), true) +
           Html::Table("Numbers of records and bytes",
                       {axis.Name(), "records", "bytes", "after damage", "bytes after damage"}, rows) +
           "</figure></section>\n";
}

std::string BandOf(const ViewFacts& facts, const FieldFacts& field)
{
    const Axis axis(facts);
    std::vector<Charts::Span> spans(axis.Length());
    Band all;
    std::vector<Html::Row> rows;
    for (std::uint64_t place = 0; place < axis.Length(); ++place) {
        const Bin* const bin = axis.At(place);
        if (bin != nullptr && field.band < bin->bands.size() && bin->bands[field.band].numbers != 0) {
            const Band& band = bin->bands[field.band];
            all.Add(band);
            spans[place] = {band.least.value, band.most.value};
            rows.push_back({axis.NameOf(place), band.least.text, band.most.text, Digits(band.numbers)});
        }
    }
    const std::string name = "<bdi>" + Html::Text(field.name) + "</bdi>";
    const std::uint64_t others = field.records + field.found - field.numbers;
    return "<article><h3 class=\"mono\">" + name + "</h3><figure>" +
           Caption(Prose(Number(field.numbers, "number", "numbers")) +
                   (others == 0 ? "" : ", " + Prose(Number(others, "other value", "other values")))) +
           Charts::Band("Least and most of " + Html::Text(field.name), spans, axis.Ticks(), all.least, all.most) +
           Html::Table("Numbers of this field", {axis.Name(), "least", "most", "numbers"}, rows) +
           "</figure></article>\n";
}

}  // namespace Corvane::FileTool
