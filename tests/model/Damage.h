#pragma once

#include <optional>
#include <string>

#include "model/Choices.h"

namespace model {

// The file's bytes after a damage that the choices pick; nothing if the file is gone. `old` are bytes that it held
// before; `what` names the damage.
std::optional<std::string> Damaged(std::string bytes, const std::string& old, Choices& choices, std::string& what);

}  // namespace model
