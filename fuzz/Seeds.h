#pragma once

#include <map>
#include <string>

namespace fuzz {

// Inputs to start from, by name: sound files and each kind of damage.
std::map<std::string, std::string> Seeds();

}  // namespace fuzz
