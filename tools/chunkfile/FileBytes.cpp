#include "chunkfile/FileBytes.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "chunkfile/Commands.h"

namespace Corvane::FileTool {

std::string_view FileBytes::At(std::uint64_t position, std::uint64_t size)
{
    const bool isHere = position >= begin_ && position - begin_ <= size_ && size <= size_ - (position - begin_);
    if (!isHere) {
        const bool inOrder = position >= begin_ && position - begin_ <= size_;
        block_.resize(std::max({block_.size(), size, kBlock}));
        try {
            size_ = input_.ReadAt(position, block_.data(), inOrder ? std::max(size, kBlock) : size);
        } catch (const std::runtime_error& error) {
            size_ = 0;
            throw std::runtime_error(
                ErrorText(input_.Name(), "byte " + std::to_string(position) + ": " + error.what()));
        }
        begin_ = position;
    }
    const std::uint64_t at = position - begin_;
    return {reinterpret_cast<const char*>(block_.data()) + at, std::min(size, size_ - at)};
}

bool AreEqual(FileBytes& left, std::uint64_t leftPosition, FileBytes& right, std::uint64_t rightPosition,
              std::uint64_t size)
{
    for (std::uint64_t done = 0; done < size;) {
        const std::uint64_t count = std::min(size - done, FileBytes::kBlock);
        const std::string_view bytes = left.At(leftPosition + done, count);
        if (bytes.size() != count || bytes != right.At(rightPosition + done, count)) {
            return false;
        }
        done += count;
    }
    return true;
}

}  // namespace Corvane::FileTool
