// Surveys any file as chunkfile info, check and view do: the facts fit together, a reopening does what is predicted, and the
// file does not change.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Support.h"
#include "chunkfile/CheckReport.h"
#include "chunkfile/InfoReport.h"
#include "chunkfile/Json.h"
#include "chunkfile/ViewPage.h"

namespace {

using Corvane::File::DataChunkFileAppender;
using fuzz::Check;
using namespace Corvane::FileTool;

void CheckRuns(const Survey& survey)
{
    std::uint64_t end = survey.end.position;
    std::uint64_t records = 0;
    std::uint64_t found = 0;
    for (const RecordRun& run : survey.runs) {
        Check(run.begin >= end && run.end <= survey.size, "runs lie one after another, in the file");
        Check(run.records != 0 && run.reason.empty() == (run.standing == Standing::Found), "doubt has a reason");
        end = run.begin;
        records += run.records;
        found += run.standing == Standing::Found ? run.records : 0;
    }
    const bool all = survey.numberOfRuns == survey.runs.size();
    Check(!all || (records == survey.found + survey.doubtful && found == survey.found),
          "the sums are those of the runs");
    Check(survey.found == 0 || survey.found <= survey.count - survey.end.records - 1, "the count has room for them");
}

void CheckSurvey(const Survey& survey)
{
    Check(survey.end.records <= survey.count, "no more records than counted");
    Check((survey.damage == Damage::None) == (survey.end.records == survey.count && survey.size >= 16), "or damage");
    Check(survey.times.distinct <= survey.end.records, "each time point is a record's");
    Check(survey.unreadable.empty() && !survey.changed, "the file is readable and stays as it is");
    CheckRuns(survey);
}

void CheckFields(const FoundRecord& record)
{
    std::string line;
    for (const auto& [name, value] : record.chunk.Fields()) {
        AppendJsonName(line, name);
        AppendJsonValue(line, value, /* typed = */ true);
    }
    Check(std::count(line.begin(), line.end(), '\n') == 0, "a line stays one line");
}

// Whatever the file holds, the page has no element of its own choice, and the map shows each byte once.
void CheckPage(const Checked& checked, const ViewFacts& facts)
{
    const std::string page = ViewPage(checked, facts);
    Check(page.find("<script") == std::string::npos && page.find('\0') == std::string::npos, "the page is harmless");
    Check(page.size() < 4'000'000, "the page is small");
    std::uint64_t sum = 0;
    for (std::size_t kind = 0; kind < kByteKinds; ++kind) {
        sum += facts.Map().Sum(static_cast<ByteKind>(kind));
    }
    Check(sum == checked.survey.size, "the map is whole");
}

// The texts, too, must do no harm. They stay in the terminal's buffer.
void Write(const Checked& checked)
{
    const Options options;
    for (const Format format : {Format::Table, Format::Json, Format::Csv}) {
        Terminal terminal(options);
        WriteReport(terminal, format, true, checked);
        WriteInfo(terminal, format, true, {checked.file, true, checked.survey});
    }
}

void CheckReopening(const std::string& path, const Reopening& reopening, std::uint64_t maxSize)
{
    std::string refusal;
    try {
        DataChunkFileAppender appender(path, true, maxSize);
        Check(appender.GetTimePoints().size() == reopening.timePoints, "a reopening holds the predicted time points");
    } catch (const std::runtime_error& error) {
        refusal = error.what();
    }
    Check(refusal == reopening.refusal, "a reopening is refused as predicted");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::DiscardLog();
    const fuzz::TimeLimit limit;
    const fuzz::Input input(data, size);
    const fuzz::MemoryFile file(input.file);
    const std::uint64_t maxSize = fuzz::ChooseMaxSize(input);
    const Input opened(file.Path());
    ViewFacts facts(opened);
    SurveyOptions options = {true, 20, {}};
    options.visit = [&facts](const FoundRecord& record) {
        CheckFields(record);
        facts.Add(record);
        return true;
    };
    const Checked checked = CheckedOf(opened, maxSize, options);
    CheckSurvey(checked.survey);
    facts.Finish(checked.survey);
    CheckPage(checked, facts);
    Write(checked);
    Check(file.Bytes() == input.file, "the tool changes no byte");
    CheckReopening(file.Path(), checked.reopening, maxSize);
    return 0;
}
