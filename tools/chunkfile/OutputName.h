#pragma once

#include <cstdint>
#include <string>

#include "chunkfile/Commands.h"

namespace Corvane::FileTool {

/// `a.0001.chunks` for OUT `a.chunks` and part 1.
std::string PartName(const std::string& out, std::uint64_t part);

/// Throws std::runtime_error if the name is one of `options.paths`, by whatever path or link, exists without --force, or
/// is no regular file.
void RefuseName(const std::string& name, const Options& options);

/// The same for each name of a part of OUT that exists, as a later part may need it. OUT itself must not be a folder.
void RefuseParts(const Options& options);

/// Whether something has this name.
bool Exists(const std::string& name);

}  // namespace Corvane::FileTool
