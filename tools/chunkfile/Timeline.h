#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Corvane::FileTool {

/// A number as it stands in the file, and its value for drawing.
struct ExactNumber {
    double value = 0;
    std::string text;
};

/// The value of a JSON number of up to 64 bytes. Nothing for another text, or if no double is that large.
std::optional<double> NumberIn(std::string_view text);

/// The least and the most of some numbers. Integers are compared exactly, others as doubles.
struct Band {
    std::uint64_t numbers = 0;
    ExactNumber least;
    ExactNumber most;

    void Add(double value, std::string_view text);
    void Add(const Band& other);
};

/// Some records.
struct Amount {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;

    void Add(const Amount& other)
    {
        records += other.records;
        bytes += other.bytes;
    }
};

/// What the records of one bin have in common.
struct Bin {
    Amount counted;
    Amount found;             ///< after damage
    std::vector<Band> bands;  ///< of the numeric fields

    void Add(const Bin& other);
};

/// Bins of equal width along an axis of integers, such as nanoseconds. Nothing needs to be known beforehand: the bins
/// widen as places arrive, in steps that are round as times. Memory depends only on kMostBins and the bands.
class Timeline {
public:
    static constexpr std::uint64_t kMostBins = 160;

    /// The bin of this place. Valid until the next call.
    Bin& At(std::int64_t place);

    /// Widens the bins until they show the records instead of their rhythm.
    void Settle();

    std::int64_t Width() const { return width_; }
    const std::map<std::int64_t, Bin>& Bins() const { return bins_; }  ///< by the place where they begin / Width()

    /// The number of bins between the first and the last one, both included; 0 if there is none.
    std::uint64_t Length() const;

    /// A round width that is a multiple of this one and at least `least`; the largest if there is none.
    static std::int64_t RoundWidth(std::int64_t width, std::uint64_t least);

private:
    void Widen();

    std::int64_t width_ = 1;
    std::map<std::int64_t, Bin> bins_;
    Bin* last_ = nullptr;  // the one that At has given
    std::int64_t lastBegin_ = 0;
};

}  // namespace Corvane::FileTool
