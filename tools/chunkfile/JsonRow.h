#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "chunkfile/Rows.h"

namespace Corvane::FileTool {

/// A text that is no row.
struct BadText : std::runtime_error {
    BadText(std::size_t at, const std::string& reason) : std::runtime_error(reason), position(at) {}
    std::size_t position;  ///< of the first wrong byte
};

/// Turns objects into rows. A value becomes its bytes: a string's own, those that `{"base64":"..."}` stands for, or the
/// compact JSON text. A name `base64:...` becomes its bytes too.
class JsonRow {
public:
    /// `catLines`: if the first row is a line of cat, all rows must be.
    explicit JsonRow(bool catLines);
    JsonRow(const JsonRow&) = delete;
    JsonRow& operator=(const JsonRow&) = delete;
    ~JsonRow();

    /// Parses a text with TextStream::kPadding readable bytes after it. Throws BadText. `row` is always the same object.
    void Parse(std::string_view text, Row& row);

private:
    class Parser;
    std::unique_ptr<Parser> parser_;
};

/// The value in this compact JSON text that the tokens of a pointer lead to, as JsonRow would give it. Nothing if there
/// is none.
std::optional<std::string> JsonAt(const std::string& json, std::span<const std::string> tokens);

}  // namespace Corvane::FileTool
