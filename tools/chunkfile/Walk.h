#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "Corvane/Pellin/DataChunk.h"
#include "chunkfile/Input.h"

namespace Corvane::FileTool {

/// Whether a record is one of those that the header counts.
enum class Standing {
    Counted,  ///< reached from the header, record by record
    Found,    ///< after damage, and it counts as the file's
    Doubtful  ///< after damage, and it may be an older file's or lie in a value
};

struct FoundRecord {
    const Pellin::DataChunk& chunk;  ///< valid during the call
    std::uint64_t position;
    std::uint64_t index;  ///< from 0. After damage, the least that it can be
    Standing standing;
};

/// Gets each record. False ends the walk.
using Visit = std::function<bool(const FoundRecord& record)>;

/// What ended the counted records.
struct WalkEnd {
    enum class Kind { AllRead, NotGood, EndOfFile, Unreadable, Stopped };
    Kind kind = Kind::AllRead;
    std::uint64_t position = 0;  ///< of the record that could not be had; else after the last one
    std::uint64_t records = 0;   ///< good ones before it: also that record's number
    std::string reason;          ///< for people: `not a good record`; empty if all were read or `visit` ended the walk
};

/// Walks the records of a file by its header and, if wanted, after damage.
///
///     Walk walk(input, options.scan);
///     const WalkEnd end = walk.Counted(visit);
///     if (!end.reason.empty()) { report(end); walk.AfterDamage(visit); }
class Walk {
public:
    /// With `judging` it keeps the time points, which AfterDamage needs. Throws std::runtime_error.
    Walk(const Input& input, bool judging);
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    ~Walk();

    std::uint64_t Version() const;
    std::uint64_t Count() const;  ///< of the header

    /// Gives the counted records, up to the first that is not good.
    WalkEnd Counted(const Visit& visit);

    /// Call after Counted. Gives the good records after damage in runs of back-to-back records, each judged before its
    /// first record is given.
    void AfterDamage(const Visit& visit);

private:
    const Input& input_;
};

}  // namespace Corvane::FileTool
