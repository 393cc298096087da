#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "chunkfile/Commands.h"
#include "chunkfile/Glue.h"
#include "chunkfile/TextStream.h"

/// @file
/// Rows of text: what import reads. NDJSON and CSV are read as they come; a JSON document is held whole.
namespace Corvane::FileTool {

constexpr std::string_view kSpace = " \t\r\n";  ///< of JSON

/// The text up to the space at its end.
inline std::string_view WithoutSpace(std::string_view text)
{
    return text.substr(0, text.find_last_not_of(kSpace) + 1);
}

struct Row {
    Glue::Fields fields;              ///< no name twice
    std::optional<std::string> time;  ///< of a line of cat, where it is no field
};

/// Both count from 1; columns are bytes.
struct Place {
    std::uint64_t line = 1;
    std::uint64_t column = 1;
};

/// A row that cannot be read.
struct BadRow : std::runtime_error {
    BadRow(Place where, const std::string& reason) : std::runtime_error(reason), place(where) {}
    Place place;
};

class RowReader {
public:
    RowReader() = default;
    RowReader(const RowReader&) = delete;
    RowReader& operator=(const RowReader&) = delete;
    virtual ~RowReader() = default;

    /// Reads the next row; false at the end. If Ctrl-C has cut a row, its bytes are still in the stream. `row` is
    /// always the same object, because its texts are used again. Throws BadRow; the next call goes on with the next
    /// row. Throws std::runtime_error if the input cannot be read.
    virtual bool Next(Row& row) = 0;

    /// Where the row begins that Next has read last.
    virtual Place Begin() const = 0;
};

/// What a file is, by its first bytes; Ndjson, Json or Csv. Takes a byte order mark.
Format FormatOf(TextStream& stream);

/// A row a line: an object. If `catLines` and the first row is {"time":"...","fields":{...}}, all rows must be such
/// lines of cat. Blank lines are no rows.
std::unique_ptr<RowReader> ReadNdjson(TextStream& stream, bool catLines);

/// The objects in the array that this JSON pointer names. Throws BadRow if there is none, or no array.
std::unique_ptr<RowReader> ReadJson(TextStream& stream, const std::string& pointer, bool catLines);

/// RFC 4180 with a line of names. A line ends with LF or CRLF. Throws BadRow if the names are wrong.
std::unique_ptr<RowReader> ReadCsv(TextStream& stream);

/// One of these.
inline std::unique_ptr<RowReader> ReadRows(TextStream& stream, Format format, const std::string& pointer, bool catLines)
{
    if (format == Format::Csv) {
        return ReadCsv(stream);
    }
    return format == Format::Json ? ReadJson(stream, pointer, catLines) : ReadNdjson(stream, catLines);
}

/// The second of two fields of the same name; their number if all names differ.
std::size_t Duplicate(const Glue::Fields& fields);

/// A hint for errors of rows with one field, if its name has another separator than a comma. Otherwise empty.
std::string SeparatorHint(std::string_view onlyName);

/// The tokens of a JSON pointer: `/a/b`. Nothing if the text is none.
std::optional<std::vector<std::string>> PointerTokens(std::string_view pointer);

}  // namespace Corvane::FileTool
