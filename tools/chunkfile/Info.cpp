#include <utility>

#include "chunkfile/InfoReport.h"
#include "chunkfile/Selection.h"

namespace Corvane::FileTool {

namespace {

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
    if (facts.survey.moreFields) {
        terminal.Error(ErrorText(facts.file, "it has more fields than the " +
                                                 std::to_string(facts.survey.fields.size()) + " that are counted"));
    }
}

}  // namespace

Exit Info(const Options& options, Terminal& terminal)
{
    bool first = true;
    return ForEachFile(options, terminal, [&](const Input& input) {
        SurveyOptions wanted;
        wanted.countFields = options.countFields;
        wanted.parts = BarsThatFit();
        wanted.progress = [&](std::uint64_t position) { terminal.Progress(input.Name(), position, input.Size()); };
        const Facts facts = {input.Name(), options.countFields, SurveyOf(input, wanted)};
        WriteInfo(terminal, options.format, std::exchange(first, false), facts);
        ReportEnd(facts, terminal);
        ReportChange(input, terminal);
        return CodeOf(facts.survey);
    });
}

}  // namespace Corvane::FileTool
