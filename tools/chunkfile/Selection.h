#pragma once

#include <functional>

#include "chunkfile/Commands.h"
#include "chunkfile/Input.h"
#include "chunkfile/Terminal.h"
#include "chunkfile/Walk.h"

namespace Corvane::FileTool {

using Print = std::function<void(const FoundRecord& record)>;

/// Gives `print` the records of a file that --from, --to, --index and --limit leave, with --scan also those after damage.
/// Reports what ended the walk. Throws std::runtime_error.
Exit PrintSelected(const Options& options, const Input& input, Terminal& terminal, const Print& print);

using FileCommand = std::function<Exit(const Input& input)>;

/// Opens the file and runs `command` for it. A std::runtime_error becomes an error with the file's name.
Exit ForFile(const std::string& path, Terminal& terminal, const FileCommand& command);

/// The same for each file. Returns the gravest code.
Exit ForEachFile(const Options& options, Terminal& terminal, const FileCommand& command);

}  // namespace Corvane::FileTool
