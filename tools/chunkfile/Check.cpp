#include <algorithm>
#include <filesystem>
#include <utility>

#include "chunkfile/CheckReport.h"
#include "chunkfile/Selection.h"

namespace Corvane::FileTool {

namespace {

namespace fs = std::filesystem;

// Checks one file after another.
class Checker {
public:
    Checker(const Options& options, Terminal& terminal) : options_(options), terminal_(terminal) {}

    Exit CheckPath(const std::string& path)
    {
        std::error_code error;
        return path != "-" && fs::is_directory(path, error) ? CheckFolder(path) : CheckFile(path);
    }

private:
    // Every regular file in the folder, then below it. Symbolic links are left out: they could lead around in a circle.
    Exit CheckFolder(const std::string& folder)  // NOLINT(misc-no-recursion): no deeper than a path is long
    {
        Exit code = Exit::Fine;
        std::vector<fs::directory_entry> entries;
        std::error_code error;
        for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator(); at.increment(error)) {
            entries.push_back(*at);
        }
        if (error) {
            terminal_.Error(ErrorText(folder, error.message()));
            code = Exit::CouldNot;
        }
        std::sort(entries.begin(), entries.end());
        for (const auto type : {fs::file_type::regular, fs::file_type::directory}) {
            for (const fs::directory_entry& entry : entries) {
                if (entry.symlink_status(error).type() == type) {
                    const bool isFile = type == fs::file_type::regular;
                    code = Graver(code, isFile ? CheckFile(entry.path()) : CheckFolder(entry.path()));
                }
            }
        }
        return code;
    }

    Exit CheckFile(const std::string& path)
    {
        return ForFile(path, terminal_, [this](const Input& input) {
            SurveyOptions wanted;
            wanted.progress = [&](std::uint64_t at) { terminal_.Progress(input.Name(), at, input.Size()); };
            const Checked checked = CheckedOf(input, options_.maxSize.value_or(0), wanted);
            const Exit code = CodeOf(checked, options_.strict);
            if (!options_.quiet || code != Exit::Fine) {
                WriteReport(terminal_, options_.format, std::exchange(first_, false), checked);
            }
            return code;
        });
    }

    const Options& options_;
    Terminal& terminal_;
    bool first_ = true;
};

}  // namespace

Checked CheckedOf(const Input& input, std::uint64_t maxSize, const SurveyOptions& options)
{
    Checked checked = {input.Name(), maxSize, SurveyOf(input, options), {}, {}, {}};
    checked.findings = FindingsOf(checked.survey);
    checked.verdict = VerdictOf(checked.findings, checked.survey);
    checked.reopening = PredictReopening(input, checked.survey, maxSize);
    return checked;
}

Exit CodeOf(const Checked& checked, bool strict)
{
    Exit code = Exit::Fine;
    for (const Finding& finding : checked.findings) {
        if (finding.code == "unreadable") {
            code = Graver(code, Exit::CouldNot);
        } else if (finding.severity == Severity::Error || (strict && finding.severity == Severity::Warning)) {
            code = Graver(code, Exit::Found);
        }
    }
    return code;
}

Exit Check(const Options& options, Terminal& terminal)
{
    Checker checker(options, terminal);
    Exit code = Exit::Fine;
    for (const std::string& path : options.paths) {
        code = Graver(code, checker.CheckPath(path));
    }
    return code;
}

}  // namespace Corvane::FileTool
