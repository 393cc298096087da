#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "chunkfile/Input.h"

namespace Corvane::FileTool {

/// Bytes of a file. Those that are asked for in their order are read in blocks.
class FileBytes {
public:
    static constexpr std::uint64_t kBlock = 128 * 1024;

    explicit FileBytes(const Input& input) : input_(input) {}

    /// Up to `size` bytes from there on, less at the end of the file; valid until the next call. Throws
    /// std::runtime_error with file and position.
    std::string_view At(std::uint64_t position, std::uint64_t size);

private:
    const Input& input_;
    std::vector<unsigned char> block_;
    std::uint64_t begin_ = 0;
    std::uint64_t size_ = 0;
};

/// Whether both files have the same bytes there. Throws std::runtime_error.
bool AreEqual(FileBytes& left, std::uint64_t leftPosition, FileBytes& right, std::uint64_t rightPosition,
              std::uint64_t size);

}  // namespace Corvane::FileTool
