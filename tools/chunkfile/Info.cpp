#include <algorithm>
#include <optional>
#include <stdexcept>

#include "chunkfile/InfoReport.h"

namespace Corvane::FileTool {

namespace {

std::optional<Facts> FactsOf(const std::string& path, const Options& options, Terminal& terminal)
{
    try {
        const Input input(path);
        SurveyOptions wanted;
        wanted.countFields = options.countFields;
        wanted.parts = BarsThatFit();
        wanted.progress = [&](std::uint64_t position) { terminal.Progress(input.Name(), position, input.Size()); };
        return Facts{input.Name(), options.countFields, SurveyOf(input, wanted)};
    } catch (const std::runtime_error& error) {
        terminal.Error(ErrorText(path, error.what()));
        return {};
    }
}

Exit CodeOf(const Survey& survey)
{
    if (survey.damage == Damage::Unreadable || !survey.unreadable.empty()) {
        return Exit::CouldNot;
    }
    return survey.damage == Damage::None ? Exit::Fine : Exit::Found;
}

// Damage ends what info can say; so it says where.
void ReportEnd(const Facts& facts, Terminal& terminal)
{
    const WalkEnd& end = facts.survey.end;
    if (facts.survey.damage == Damage::ShortFile) {
        terminal.Error(ErrorText(facts.file, "no whole header"));
    } else if (!end.reason.empty()) {
        terminal.Error(ErrorText(facts.file, end.position, end.records, end.reason));
    }
    if (facts.survey.changed) {
        terminal.Error(ErrorText(facts.file, "the file changed while it was read"));
    }
}

}  // namespace

Exit Info(const Options& options, Terminal& terminal)
{
    Exit code = Exit::Fine;
    bool first = true;
    for (const std::string& path : options.paths) {
        const auto facts = FactsOf(path, options, terminal);
        if (!facts) {
            code = Graver(code, Exit::CouldNot);
            continue;
        }
        code = Graver(code, CodeOf(facts->survey));
        WriteInfo(terminal, options.format, first, *facts);
        ReportEnd(*facts, terminal);
        first = false;
    }
    return code;
}

}  // namespace Corvane::FileTool
