#pragma once

#include <locale>
#include <string>

namespace support {

// A part of a locale that a program may have set: a dot between any two digits.
class GroupedNumbers : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
};

}  // namespace support
