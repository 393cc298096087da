#include "chunkfile/ByteMap.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

#include "Corvane/File/ChunkFileLayout.h"

namespace Corvane::FileTool {

namespace {

using File::kHeaderSize;

// Where zeros begin that go on to the end of the file. Holes cost nothing.
std::uint64_t EndOfData(const Input& input, std::uint64_t position)
{
    std::array<unsigned char, 4096> bytes = {};
    std::uint64_t end = position;
    while ((position = input.SkipZeros(position)) < input.Size()) {
        try {
            const std::size_t size = input.ReadAt(position, bytes.data(), bytes.size());
            const auto zeros = std::find_if(bytes.rend() - static_cast<std::ptrdiff_t>(size), bytes.rend(),
                                            [](unsigned char byte) { return byte != 0; });
            end = position + static_cast<std::uint64_t>(bytes.rend() - zeros);
            position += std::max<std::size_t>(size, 1);
        } catch (const std::runtime_error&) {  // a page that cannot be read may hold data
            end = position = std::min(input.Size(), position - position % bytes.size() + bytes.size());
        }
    }
    return end;
}

std::uint64_t CountOf(const Input& input)
{
    std::array<unsigned char, kHeaderSize> header = {};
    std::uint64_t count = 0;
    input.ReadAt(0, header.data(), header.size());
    std::memcpy(&count, header.data() + File::kChunkNumberPosition, sizeof count);
    return count;
}

}  // namespace

ByteMap::ByteMap(const Input& input)
    : input_(input), count_(CountOf(input)), countedEnd_(input.Size() < kHeaderSize ? 0 : kHeaderSize)
{
    while ((input.Size() - std::min<std::uint64_t>(input.Size(), 1)) / cellSize_ >= kMostCells) {
        cellSize_ *= 2;
    }
}

void ByteMap::Add(const FoundRecord& record)
{
    const std::uint64_t end = record.position + record.size;
    if (record.standing == Standing::Counted) {
        ++counted_;
        countedEnd_ = end;
        return;
    }
    AddCounted();
    const bool found = record.standing == Standing::Found;
    AddRest(record.position, found);
    Paint(end, found ? ByteKind::Found : ByteKind::Doubtful);
}

void ByteMap::Finish(const Survey& survey)
{
    AddCounted();
    AddRest(EndOfData(input_, at_), false);
    Paint(input_.Size(), ByteKind::Zeros);
    for (const Range& range : survey.unreadable) {
        Repaint(range);
    }
}

void ByteMap::AddCounted()
{
    Paint(std::min<std::uint64_t>(countedEnd_, kHeaderSize), ByteKind::Header);
    Paint(std::min(countedEnd_, input_.Size()), ByteKind::Records);
}

// Bytes that are no good record. Zeros are damage if records are lost there: after damage, and before more of the file.
void ByteMap::AddRest(std::uint64_t end, bool beforeFound)
{
    if (end <= at_) {
        return;
    }
    const bool whole = input_.Size() >= kHeaderSize && counted_ == count_;
    if (const std::uint64_t data = std::min(input_.SkipZeros(at_), end); whole || (data == end && !beforeFound)) {
        Paint(data, ByteKind::Zeros);
    }
    Paint(end, whole ? ByteKind::Other : ByteKind::Damage);
}

// Records that begin inside a doubtful one are painted from its end on.
void ByteMap::Paint(std::uint64_t end, ByteKind kind)
{
    if (end <= at_) {
        return;
    }
    const Range bytes = {at_, end};
    if (kind == lastKind_ && !parts_.empty()) {
        parts_.back().bytes.end = leftOut_ == 0 ? end : parts_.back().bytes.end;
    } else if (parts_.size() < kMostParts) {
        parts_.push_back({bytes, kind});
    } else {
        ++leftOut_;
    }
    lastKind_ = kind;
    sums_[static_cast<std::size_t>(kind)] += end - at_;
    MarkCells(bytes, kind);
    at_ = end;
}

// These bytes could not be read.
void ByteMap::Repaint(Range bytes)
{
    std::vector<Part> parts;
    const auto add = [&parts](std::uint64_t begin, std::uint64_t end, ByteKind kind) {
        if (begin < end) {
            parts.push_back({{begin, end}, kind});
        }
    };
    std::uint64_t inside = 0;
    for (const Part& part : parts_) {
        const std::uint64_t begin = std::clamp(bytes.begin, part.bytes.begin, part.bytes.end);
        const std::uint64_t end = std::clamp(bytes.end, part.bytes.begin, part.bytes.end);
        add(part.bytes.begin, begin, part.kind);
        add(begin, end, ByteKind::Unreadable);
        add(end, part.bytes.end, part.kind);
        sums_[static_cast<std::size_t>(part.kind)] -= end - begin;
        inside += end - begin;
    }
    parts_ = std::move(parts);
    const std::uint64_t others = bytes.end - bytes.begin - inside;  // of parts that are left out
    auto& damage = sums_[static_cast<std::size_t>(ByteKind::Damage)];
    damage -= std::min(damage, others);
    sums_[static_cast<std::size_t>(ByteKind::Unreadable)] += inside + others;
    MarkCells(bytes, ByteKind::Unreadable);
}

void ByteMap::MarkCells(Range bytes, ByteKind kind)
{
    for (std::uint64_t cell = bytes.begin / cellSize_; cell * cellSize_ < bytes.end && cell < kMostCells; ++cell) {
        cells_[cell] |= static_cast<std::uint8_t>(1U << static_cast<unsigned>(kind));
    }
}

std::uint64_t ByteMap::Cells() const
{
    return (input_.Size() + cellSize_ - 1) / cellSize_;
}

ByteKind ByteMap::KindOf(std::uint64_t cell) const
{
    return static_cast<ByteKind>(std::max<int>(std::bit_width(cells_[cell]), 1) - 1);
}

std::string_view NameOf(ByteKind kind)
{
    constexpr std::array<std::string_view, kByteKinds> names = {
        "zeros",  "other bytes", "records", "header", "records after damage", "doubtful records",
        "damage", "unreadable"};
    return names[static_cast<std::size_t>(kind)];
}

}  // namespace Corvane::FileTool
