#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "chunkfile/CheckReport.h"

namespace Corvane::FileTool {

namespace {

namespace fs = std::filesystem;

// Checks one file after another.
class Checker {
public:
    Checker(const Options& options, Terminal& terminal) : options_(options), terminal_(terminal) {}

    Exit Code() const { return code_; }

    void CheckPath(const std::string& path)
    {
        std::error_code error;
        if (path != "-" && fs::is_directory(path, error)) {
            CheckFolder(path);
        } else {
            CheckFile(path);
        }
    }

private:
    // Every regular file in the folder and below it. Symbolic links are left out: they could lead around in a circle.
    void CheckFolder(const std::string& top)
    {
        std::vector<std::string> folders = {top};
        while (!folders.empty()) {
            const std::string folder = std::move(folders.back());
            folders.pop_back();
            std::vector<std::string> inner;
            for (const fs::directory_entry& entry : EntriesOf(folder)) {
                std::error_code error;
                const auto type = entry.symlink_status(error).type();
                if (type == fs::file_type::directory) {
                    inner.push_back(entry.path());
                } else if (type == fs::file_type::regular) {
                    CheckFile(entry.path());
                }
            }
            folders.insert(folders.end(), inner.rbegin(), inner.rend());
        }
    }

    std::vector<fs::directory_entry> EntriesOf(const std::string& folder)
    {
        std::vector<fs::directory_entry> entries;
        std::error_code error;
        for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator(); at.increment(error)) {
            entries.push_back(*at);
        }
        if (error) {
            Fail(folder, error.message());
        }
        std::sort(entries.begin(), entries.end());
        return entries;
    }

    void CheckFile(const std::string& path)
    {
        const auto checked = Judged(path);
        if (!checked) {
            return;
        }
        const Exit code = CodeOf(*checked, options_.strict);
        code_ = Graver(code_, code);
        if (!options_.quiet || code != Exit::Fine) {
            WriteReport(terminal_, options_.format, first_, *checked);
            first_ = false;
        }
    }

    // Nothing if the file cannot be read.
    std::optional<Checked> Judged(const std::string& path)
    {
        try {
            const Input input(path);
            const auto progress = [&](std::uint64_t position) {
                terminal_.Progress(input.Name(), position, input.Size());
            };
            return CheckedOf(input, options_.maxSize.value_or(0), {false, 0, progress});
        } catch (const std::runtime_error& error) {
            Fail(path, error.what());
            return {};
        }
    }

    void Fail(const std::string& path, const std::string& reason)
    {
        terminal_.Error(ErrorText(path, reason));
        code_ = Graver(code_, Exit::CouldNot);
    }

    const Options& options_;
    Terminal& terminal_;
    Exit code_ = Exit::Fine;
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
    for (const std::string& path : options.paths) {
        checker.CheckPath(path);
    }
    return checker.Code();
}

}  // namespace Corvane::FileTool
