#pragma once

#include <set>
#include <string>
#include <vector>

namespace support {

using Lines = std::vector<std::string>;
using Names = std::set<std::string>;

}  // namespace support
