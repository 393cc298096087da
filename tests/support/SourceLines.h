#pragma once

#include <initializer_list>
#include <string>

namespace support {

// Expects that a log entry's file and line name a statement in this source of the library, such as
// "ExtendedAttributes.cpp". The statement contains the last piece, which comes after the other pieces.
void ExpectStatement(const std::string& file, int line, const std::string& source,
                     std::initializer_list<std::string> pieces);

}  // namespace support
