#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "chunkfile/Survey.h"

namespace Corvane::FileTool {

/// What bytes of a file are. A cell of the map that holds several kinds shows the last of them in this order.
enum class ByteKind { Zeros, Other, Records, Header, Found, Doubtful, Damage, Unreadable };
constexpr std::size_t kByteKinds = 8;

/// The kinds of all bytes of a file: cells of equal size for a picture, the first parts exactly, and sums.
class ByteMap {
public:
    static constexpr std::uint64_t kMostCells = 1024;
    static constexpr std::size_t kMostParts = 300;

    struct Part {
        Range bytes;
        ByteKind kind;
    };

    explicit ByteMap(const Input& input);

    /// Takes the records as a walk gives them.
    void Add(const FoundRecord& record);

    /// Takes the rest of the file.
    void Finish(const Survey& survey);

    std::uint64_t CellSize() const { return cellSize_; }  ///< a power of two
    std::uint64_t Cells() const;
    ByteKind KindOf(std::uint64_t cell) const;
    std::uint64_t Sum(ByteKind kind) const { return sums_[static_cast<std::size_t>(kind)]; }  ///< in bytes
    const std::vector<Part>& Parts() const { return parts_; }
    std::uint64_t PartsLeftOut() const { return leftOut_; }

private:
    void AddCounted();
    void AddRest(std::uint64_t end, bool beforeFound);
    void Paint(std::uint64_t end, ByteKind kind);
    void Repaint(Range bytes);
    void MarkCells(Range bytes, ByteKind kind);

    const Input& input_;
    std::uint64_t count_ = 0;  // of the header
    std::uint64_t counted_ = 0;
    std::uint64_t countedEnd_;
    std::uint64_t cellSize_ = 1;
    std::uint64_t at_ = 0;  // all bytes before are painted
    std::array<std::uint8_t, kMostCells> cells_ = {};
    std::array<std::uint64_t, kByteKinds> sums_ = {};
    std::vector<Part> parts_;
    ByteKind lastKind_ = ByteKind::Header;
    std::uint64_t leftOut_ = 0;
};

std::string_view NameOf(ByteKind kind);  ///< `records`

}  // namespace Corvane::FileTool
