#pragma once

#include <functional>
#include <set>
#include <string>

#include "chunkfile/Commands.h"
#include "chunkfile/Input.h"
#include "chunkfile/Terminal.h"
#include "chunkfile/Walk.h"

namespace Corvane::FileTool {

using Print = std::function<void(const FoundRecord& record)>;

/// Gives `print` the records of a file that --from, --to, --index and --limit leave, with --scan also those after damage,
/// and the doubtful ones if wanted. Reports what ended the walk, and what cannot be read. Throws std::runtime_error.
Exit PrintSelected(const Options& options, const Input& input, Terminal& terminal, const Print& print,
                   bool doubtful = false);

/// Reports a file that is not the one that was opened, or was written to since.
void ReportChange(const Input& input, Terminal& terminal);

/// The names of --fields that no record has had yet: a name that no record has is probably misspelt.
class UnmetFields {
public:
    explicit UnmetFields(const Options& options) : names_(options.fields.begin(), options.fields.end()) {}

    void Meet(const Pellin::DataChunk& chunk);

    /// Says a line for each name. Says nothing with -q, or if Meet got no record.
    void Report(const Options& options, Terminal& terminal) const;

private:
    std::set<std::string, std::less<>> names_;
    bool any_ = false;
};

using FileCommand = std::function<Exit(const Input& input)>;

/// Opens the file and runs `command` for it. A std::runtime_error becomes an error with the file's name.
Exit ForFile(const std::string& path, Terminal& terminal, const FileCommand& command);

/// The same for each file. Returns the gravest code.
Exit ForEachFile(const Options& options, Terminal& terminal, const FileCommand& command);

}  // namespace Corvane::FileTool
