#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Corvane/File/DataChunkFileScanner.h"
#include "Corvane/Pellin/DataChunk.h"
#include "chunkfile/HeldTimes.h"
#include "chunkfile/Input.h"

namespace Corvane::FileTool {

/// Whether a record is one of those that the header counts.
enum class Standing {
    Counted,  ///< reached from the header, record by record
    Found,    ///< after damage, and it counts as the file's
    Doubtful  ///< after damage or after the last counted record: it may be an older file's, or lie in a value
};

struct FoundRecord {
    const Pellin::DataChunk& chunk;  ///< valid during the call
    std::uint64_t position;
    std::uint64_t size;   ///< on the file
    std::uint64_t index;  ///< from 0. After damage, the least that it can be
    Standing standing;
};

/// Gets each record. False ends the walk.
using Visit = std::function<bool(const FoundRecord& record)>;

struct VisitNothing {
    bool operator()(const FoundRecord& /*record*/) const { return true; }
};

/// What ended the counted records.
struct WalkEnd {
    enum class Kind { AllRead, NotGood, EndOfFile, Unreadable, Stopped };
    Kind kind = Kind::AllRead;
    std::uint64_t position = 0;  ///< of the record that could not be had; else after the last one
    std::uint64_t records = 0;   ///< good ones before it: also that record's number
    std::string reason;          ///< for people: `not a good record`; empty for AllRead and Stopped
};

/// Back-to-back records that were found by a search.
struct RecordRun {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t records = 0;
    Standing standing = Standing::Doubtful;
    std::string reason;  ///< why they are doubtful
};

/// What lies after the counted records.
struct FoundAfter {
    static constexpr std::size_t kMostRuns = 100;
    std::vector<RecordRun> runs;  ///< the first kMostRuns
    std::uint64_t numberOfRuns = 0;
    std::uint64_t found = 0;  ///< records that count as the file's
    std::uint64_t doubtful = 0;
    std::vector<Range> unreadable;  ///< bytes that the system could not read, the first kMostRuns ranges
};

/// The size that an intact head at this position announces for its record. Nothing if there is none.
std::optional<std::uint64_t> AnnouncedSizeAt(const Input& input, std::uint64_t position);

/// Walks the records of a file by its header and, if wanted, those that lie after damage.
///
///     Walk walk(input, options.scan);
///     const WalkEnd end = walk.Counted(visit);
///     if (!end.reason.empty()) { report(end); walk.AfterEnd(visit); }
class Walk {
public:
    /// With `judging` it keeps the time points, which AfterEnd needs. Throws std::runtime_error.
    Walk(const Input& input, bool judging);

    std::uint64_t Version() const { return scanner_.GetVersion(); }
    std::uint64_t Count() const { return scanner_.GetNumberOfChunks(); }  ///< of the header

    /// Gives the counted records, up to the first that is not good. A template, because a call through a pointer for each
    /// small record would show.
    template <typename Visitor = VisitNothing>
    WalkEnd Counted(const Visitor& visit)
    {
        end_ = {};
        end_.position = scanner_.GetPosition();
        for (Step step = Next();; step = Next()) {
            if (step != Step::Record) {
                return end_ = WhyItEnded(step);
            }
            const Pellin::DataChunk& chunk = scanner_.GetChunk();
            if (judging_) {
                times_.Add(chunk.GetTimePoint());
            }
            const std::uint64_t size = chunk.GetSizeOnFile();
            if (!visit(FoundRecord{chunk, end_.position, size, end_.records, Standing::Counted})) {
                end_.kind = WalkEnd::Kind::Stopped;
                return end_;
            }
            end_.position += size;
            ++end_.records;
        }
    }

    /// Call after Counted. Searches for good records from there to the end of the file. Gives them, if there is a
    /// `visit`, in runs of back-to-back records, each judged before its first record is given. If all counted records
    /// were read, all others are doubtful. Throws std::runtime_error.
    void AfterEnd(const Visit& visit = {});

    /// Of the records that count as the file's, in any order.
    HeldTimes& Times() { return times_; }

    const FoundAfter& After() const { return after_; }

private:
    struct Candidate;
    enum class Step { Record, End, Unreadable };

    Step Next()
    {
        try {
            return scanner_.Next() ? Step::Record : Step::End;
        } catch (const std::runtime_error& error) {
            failure_ = error.what();
            return Step::Unreadable;
        }
    }

    WalkEnd WhyItEnded(Step step);
    void NoteAnnounced(std::uint64_t position);
    bool SkipUnreadable();
    bool Find();
    Candidate ReadRun();
    std::string Doubt(const Candidate& candidate);
    bool Judge(const Candidate& candidate, const Visit& visit);
    bool Give(const RecordRun& run, std::uint64_t index, const Visit& visit);

    const Input& input_;
    File::DataChunkFileScanner scanner_;
    bool judging_;
    HeldTimes times_;
    std::optional<Time::TimePoint> last_;  // of the records that count as the file's
    std::uint64_t room_ = 0;               // records that the header counts and that may still be found
    std::uint64_t announcedEnd_ = 0;       // where the record that an intact head announces ends
    WalkEnd end_;
    std::string failure_;  // of the last step that could not read
    FoundAfter after_;
};

}  // namespace Corvane::FileTool
