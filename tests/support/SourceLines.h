#pragma once

#include <initializer_list>
#include <string>

namespace support {

struct SourceLines {
    int first = 0;
    int last = 0;
};

// The lines of the logging statement in this source of the library ("ExtendedAttributes.cpp") that contains the last
// piece, which comes after the pieces before it. Throws std::runtime_error if there is none.
SourceLines LoggingStatement(const std::string& source, std::initializer_list<std::string> pieces);

}  // namespace support
