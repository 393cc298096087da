#pragma once

#include <string_view>

namespace Corvane::FileTool {

constexpr int kMostNesting = 64;  // what every JSON parser can read

/// Whether the bytes are a JSON number, true, false, null, object or array in compact form: no space outside strings.
/// Nesting is at most kMostNesting. Strings are UTF-8 without control characters and without halves of surrogates.
bool IsCompactJson(std::string_view bytes);

}  // namespace Corvane::FileTool
