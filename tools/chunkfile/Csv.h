#pragma once

#include <string>
#include <string_view>

namespace Corvane::FileTool {

/// Appends a field of a line of CSV (RFC 4180): quoted only where it must be.
inline void AppendCsv(std::string& line, std::string_view field)
{
    if (field.find_first_of("\",\r\n") == std::string_view::npos) {
        line.append(field);
        return;
    }
    line += '"';
    for (const char byte : field) {
        line.append(byte == '"' ? 2 : 1, byte);
    }
    line += '"';
}

}  // namespace Corvane::FileTool
