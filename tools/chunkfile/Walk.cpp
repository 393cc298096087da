#include "chunkfile/Walk.h"

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
#include "chunkfile/Glue.h"

namespace Corvane::FileTool {

using End = File::DataChunkFileScanner::End;
using Time::TimePoint;

namespace {

constexpr std::uint64_t kHeadRead = 4096;  // the most that a glue looks at

}  // namespace

std::optional<std::uint64_t> AnnouncedSizeAt(const Input& input, std::uint64_t position)
{
    std::vector<unsigned char> head(std::min<std::uint64_t>(Glue::HeadSize(), kHeadRead));
    try {
        const std::size_t size = input.ReadAt(position, head.data(), head.size());
        return Glue::AnnouncedSize(head.data(), size);
    } catch (const std::runtime_error&) {
        return {};  // a head that cannot be read announces nothing
    }
}

// A run that is not judged yet.
struct Walk::Candidate {
    RecordRun run;
    std::uint64_t next = 0;  // where the search goes on
    bool inside = false;     // it begins inside an announced record
    bool ascends = true;     // from the last record that counts as the file's
    std::deque<TimePoint> times;
};

Walk::Walk(const Input& input, bool judging)
    : input_(input),
      scanner_(input.Path()),
      judging_(judging),
      times_([this](std::uint64_t number, const HeldTimes::Take& take) {
          File::DataChunkFileScanner again(input_.Path());
          for (again.GoTo(File::kHeaderSize, number); again.Next();) {
              take(again.GetChunk().GetTimePoint());
          }
      })
{
}

// A chunk takes a failed read for the end of the file. So a record that is not good may be one that cannot be read.
WalkEnd Walk::WhyItEnded(Step step)
{
    if (times_.Size() != 0) {
        last_.emplace(times_.Last());
    }
    WalkEnd end = end_;
    if (step == Step::Unreadable) {
        end.kind = WalkEnd::Kind::Unreadable;
        end.reason = failure_;
        return end;
    }
    switch (scanner_.GetEnd()) {
        case End::AllRead:
            end.kind = WalkEnd::Kind::AllRead;
            return end;
        case End::EndOfFile:
            end.kind = WalkEnd::Kind::EndOfFile;
            end.reason = "the file ends before this record";
            return end;
        case End::BadRecord:
            break;
    }
    const std::uint64_t size = std::max(kHeadRead, AnnouncedSizeAt(input_, end.position).value_or(0));
    const bool readable = !input_.UnreadableIn({end.position, end.position + size});
    end.kind = readable ? WalkEnd::Kind::NotGood : WalkEnd::Kind::Unreadable;
    end.reason = readable ? "not a good record" : "cannot be read";
    return end;
}

void Walk::AfterEnd(const Visit& visit)
{
    room_ = end_.kind == WalkEnd::Kind::AllRead ? 0 : Count() - 1 - end_.records;
    scanner_.GoTo(end_.position);
    if (end_.kind == WalkEnd::Kind::Unreadable) {
        SkipUnreadable();
    } else {
        const std::uint64_t data = input_.SkipZeros(end_.position);
        // A record may begin with zeros, but not with pages of them.
        scanner_.GoTo(data == input_.Size() ? data : std::max(end_.position, data - std::min(data, kHeadRead)));
    }
    if (end_.kind != WalkEnd::Kind::AllRead) {
        NoteAnnounced(end_.position);
    }
    while (Find()) {
        if (!Judge(ReadRun(), visit)) {
            return;
        }
    }
}

// Heads inside an announced record are bytes of a value and announce nothing.
void Walk::NoteAnnounced(std::uint64_t position)
{
    if (position < announcedEnd_) {
        return;
    }
    if (const auto size = AnnouncedSizeAt(input_, position)) {
        announcedEnd_ = position + *size;
    }
}

// Goes to the first position after the bytes that could not be read. Returns false if all can be read now.
bool Walk::SkipUnreadable()
{
    const auto range = input_.UnreadableIn({scanner_.GetPosition(), input_.Size()});
    if (!range) {
        return false;
    }
    if (after_.unreadable.size() < FoundAfter::kMostRuns) {
        after_.unreadable.push_back(*range);
    }
    scanner_.GoTo(range->end);
    return true;
}

bool Walk::Find()
{
    for (;;) {
        try {
            return scanner_.FindNext();
        } catch (const std::runtime_error&) {
            if (!SkipUnreadable()) {
                throw;
            }
        }
    }
}

// Reads back-to-back records. A run that begins inside an announced record ends where that record ends.
Walk::Candidate Walk::ReadRun()
{
    Candidate candidate;
    RecordRun& run = candidate.run;
    run.begin = run.end = scanner_.GetPosition();
    candidate.inside = run.begin < announcedEnd_;
    const std::uint64_t boundary = candidate.inside ? announcedEnd_ : UINT64_MAX;
    Step step = Next();
    for (; step == Step::Record && scanner_.GetPosition() < boundary; step = Next()) {
        const auto& chunk = scanner_.GetChunk();
        run.end = scanner_.GetPosition() + chunk.GetSizeOnFile();
        if (++run.records <= room_) {
            const TimePoint timePoint = chunk.GetTimePoint();
            const bool ascends =
                candidate.times.empty() ? !last_ || *last_ < timePoint : candidate.times.back() < timePoint;
            candidate.ascends = candidate.ascends && ascends;
            candidate.times.push_back(timePoint);
        }
    }
    candidate.next = std::clamp(run.end, run.begin + 1, boundary);  // past records without length
    scanner_.GoTo(candidate.next);
    if (step == Step::Unreadable && SkipUnreadable()) {
        candidate.next = scanner_.GetPosition();
    }
    if (step == Step::End) {
        NoteAnnounced(run.end);
    }
    return candidate;
}

// Why the run may not be the file's. Empty if it counts as the file's.
std::string Walk::Doubt(const Candidate& candidate)
{
    const RecordRun& run = candidate.run;
    if (end_.kind == WalkEnd::Kind::AllRead) {
        return "after the last counted record";
    }
    if (run.records > room_) {
        return "more records than the header counts";
    }
    if (candidate.inside) {
        return "inside a damaged record";
    }
    if (std::ranges::any_of(candidate.times, [this](const TimePoint& time) { return times_.Contains(time); })) {
        return "a time point that the file already holds";
    }
    // An older file can leave exactly as many records as the header counts further. Their times are then earlier.
    const bool descends = last_ && times_.Descents() == 0 && candidate.times.front() < *last_;
    if (run.records == room_ && !descends) {
        return "";
    }
    if (!last_) {
        return "no earlier record to compare times with";
    }
    return candidate.ascends ? "" : "times before those of earlier records";
}

bool Walk::Judge(const Candidate& candidate, const Visit& visit)
{
    RecordRun run = candidate.run;
    run.reason = Doubt(candidate);
    run.standing = run.reason.empty() ? Standing::Found : Standing::Doubtful;
    const std::uint64_t index = Count() - room_;
    if (run.standing == Standing::Found) {
        for (const TimePoint& timePoint : candidate.times) {
            times_.Add(timePoint);
            last_.emplace(timePoint);
        }
        room_ -= std::min(room_, run.records + 1);
        after_.found += run.records;
    } else {
        after_.doubtful += run.records;
    }
    ++after_.numberOfRuns;
    if (after_.runs.size() < FoundAfter::kMostRuns) {
        after_.runs.push_back(run);
    }
    return !visit || (Give(run, index, visit) && (scanner_.GoTo(candidate.next), true));
}

bool Walk::Give(const RecordRun& run, std::uint64_t index, const Visit& visit)
{
    scanner_.GoTo(run.begin, run.records);
    for (std::uint64_t i = 0; Next() == Step::Record; ++i) {
        const auto& chunk = scanner_.GetChunk();
        if (!visit({chunk, scanner_.GetPosition(), chunk.GetSizeOnFile(), index + i, run.standing})) {
            return false;
        }
    }
    return true;
}

}  // namespace Corvane::FileTool
