// chunkfile copy: records of one file or several, into a new one.
#include <sys/resource.h>

#include <stdexcept>

#include "chunkfile/Plan.h"
#include "chunkfile/Selection.h"

namespace Corvane::FileTool {

namespace {

// Each source stays open.
void AllowManyFiles()
{
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

Exit PlanCopy(Plan& plan, const Options& options, Terminal& terminal)
{
    Exit code = Exit::Fine;
    UnmetFields unmet(options);
    for (const std::string& path : options.paths) {
        const Input& input = plan.Open(path);
        const auto add = [&](const FoundRecord& record) {
            plan.Add(record);
            unmet.Meet(record.chunk);
        };
        code = Graver(code, PrintSelected(options, input, terminal, add));
    }
    unmet.Report(options, terminal);
    return code;
}

bool Selects(const Options& options)
{
    return options.from || options.to || options.index.begin != 0 || options.index.end != UINT64_MAX;
}

}  // namespace

Exit Copy(const Options& options, Terminal& terminal)
{
    CheckOutput(options);
    if (!options.fields.empty() && Glue::MakeChunk(0, {}) == nullptr) {
        throw std::invalid_argument("--fields needs a platform that makes chunks of fields");
    }
    AllowManyFiles();
    Plan plan(options, terminal);
    const Exit code = PlanCopy(plan, options, terminal);
    if (plan.Size() == 0 && (code != Exit::Fine || Selects(options))) {
        terminal.Error(ErrorText(options.output, "not written: there is no record to copy"));
        return Graver(code, Exit::Found);
    }
    plan.Decide();
    return Graver(code, WriteChunks(plan, options, terminal).skipped == 0 ? Exit::Fine : Exit::Found);
}

}  // namespace Corvane::FileTool
