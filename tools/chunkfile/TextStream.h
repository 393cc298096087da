#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Corvane/File/Descriptor.h"

namespace Corvane::FileTool {

/// The bytes of a file, or of standard input for `-`, read in blocks as they are wanted.
///
/// - **Memory**: what was fetched and not yet taken.
/// - **Errors**: The constructor and Fetch throw std::runtime_error with the reason alone.
class TextStream {
public:
    static constexpr std::size_t kPadding = 64;  ///< readable bytes after Rest(), which simdjson may look at

    explicit TextStream(const std::string& path);

    /// What was fetched and not yet taken. Valid until the next Fetch.
    std::string_view Rest() const { return {buffer_.data() + begin_, end_ - begin_}; }

    /// Reads more bytes after Rest(), up to as many again. Returns false at the end of the file, or if Ctrl-C ends it.
    bool Fetch();

    void Take(std::size_t size)
    {
        begin_ += size;
        taken_ += size;
    }

    std::uint64_t Taken() const { return taken_; }  ///< bytes
    std::uint64_t Size() const { return size_; }    ///< of the file; 0 if it is not known

    /// Whether Ctrl-C ended it: the last row may be a part of one.
    bool IsCut() const { return isCut_; }

private:
    bool WaitForBytes() const;
    void MakeRoom();

    File::Descriptor file_;
    std::string buffer_;
    std::uint64_t size_ = 0;
    std::uint64_t taken_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool isCut_ = false;
};

}  // namespace Corvane::FileTool
