#include <algorithm>
#include <array>
#include <filesystem>
#include <numeric>
#include <utility>

#include "chunkfile/CheckReport.h"
#include "chunkfile/Selection.h"

namespace Corvane::FileTool {

namespace {

namespace fs = std::filesystem;

// What the last line calls a file. Each verdict but the first is at its own place and kNotSound.
constexpr std::array<std::string_view, 7> kKinds = {
    "sound", "sound with warnings", "sound but not reopenable", "damaged", "unknown", "unclear", "unreadable"};
constexpr std::size_t kNotReopenable = 2;
constexpr std::size_t kNotSound = 2;

// A user who names a maximum size wants to reopen the file.
bool IsRefused(const Options& options, const Checked& checked)
{
    return options.maxSize && !checked.reopening.refusal.empty();
}

std::size_t KindOf(const Options& options, const Checked& checked)
{
    if (checked.verdict != Verdict::Sound) {
        return static_cast<std::size_t>(checked.verdict) + kNotSound;
    }
    const auto warns = [](const Finding& finding) { return finding.severity == Severity::Warning; };
    const std::size_t unlessRefused = std::ranges::any_of(checked.findings, warns) ? 1 : 0;
    return IsRefused(options, checked) ? kNotReopenable : unlessRefused;
}

// Checks one file after another.
class Checker {
public:
    Checker(const Options& options, Terminal& terminal) : options_(options), terminal_(terminal) {}

    Exit CheckPath(const std::string& path)
    {
        std::error_code error;
        return path != "-" && fs::is_directory(path, error) ? CheckFolder(path) : CheckFile(path);
    }

    // How many files there were of each kind.
    void WriteSum() const
    {
        const std::uint64_t files = std::accumulate(numbers_.begin(), numbers_.end(), std::uint64_t{0});
        if (files == 1 || options_.quiet || options_.format != Format::Table) {
            return;
        }
        std::string line = Number(files, "file", "files");
        const char* before = ": ";
        for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
            if (numbers_[kind] != 0) {
                line.append(before).append(std::to_string(numbers_[kind])).append(" ").append(kKinds[kind]);
                before = ", ";
            }
        }
        terminal_.Write(line + "\n");
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
        std::size_t kind = kKinds.size() - 1;
        const Exit done = ForFile(path, terminal_, [&](const Input& input) {
            SurveyOptions wanted;
            wanted.progress = [&](std::uint64_t at) { terminal_.Progress(input.Name(), at, input.Size()); };
            const Checked checked = CheckedOf(input, options_.maxSize.value_or(0), wanted);
            const Exit refused = IsRefused(options_, checked) ? Exit::Found : Exit::Fine;
            const Exit code = Graver(CodeOf(checked, options_.strict), refused);
            kind = KindOf(options_, checked);
            if (!options_.quiet || code != Exit::Fine) {
                WriteReport(terminal_, options_.format, std::exchange(first_, false), checked);
            }
            return code;
        });
        ++numbers_[kind];
        return done;
    }

    const Options& options_;
    Terminal& terminal_;
    bool first_ = true;
    std::array<std::uint64_t, kKinds.size()> numbers_ = {};  // of files, by kind
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
    checker.WriteSum();
    return code;
}

}  // namespace Corvane::FileTool
