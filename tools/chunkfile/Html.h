#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// @file
/// Pieces of an HTML page that is XML too. What comes from a file can neither end an element nor change how the page
/// around it is read.
namespace Corvane::FileTool::Html {

/// The text in UTF-8 with `<`, `>`, `&` and quotes as entities. Bytes that are not UTF-8, control characters and those
/// that turn or hide text become `\xNN`. After kMostCharacters it says how many bytes are left out.
std::string Text(std::string_view bytes);
constexpr std::size_t kMostCharacters = 120;

/// The same for a path, which can be broken into lines after each `/`.
std::string Path(std::string_view path);

/// The same for sentences of this program, as long as they are. Digits of long numbers stand in groups.
std::string Prose(std::string_view text);

/// Digits in groups. Copied, they are the plain number.
std::string Digits(std::uint64_t number);

/// `256 MiB`, `1.5 KiB`, `40 B`.
std::string BytesText(std::uint64_t bytes);

/// A number with two decimals.
std::string Decimal(double number);

using Row = std::vector<std::string>;  ///< cells, as HTML

/// A table that is opened with a click. Its first column names the rows.
std::string Table(std::string_view title, const Row& columns, const std::vector<Row>& rows);

}  // namespace Corvane::FileTool::Html
