#include <CLI/CLI.hpp>

#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

int Run(int count, char** arguments)
{
    CLI::App app("Looks into chunk files");
    app.require_subcommand(1);
    Options options;
    for (auto* const command : {app.add_subcommand("info"), app.add_subcommand("check")}) {
        command->add_option("PATH", options.paths)->required();
    }
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(Exit::Usage);
    }
    Terminal terminal(options);
    const Exit code = app.got_subcommand("info") ? Info(options, terminal) : Check(options, terminal);
    terminal.Flush();
    return static_cast<int>(code);
}

}  // namespace Corvane::FileTool
