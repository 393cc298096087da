#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

Exit Info(const Options& /*options*/, Terminal& terminal)
{
    terminal.Error("Info is not written yet");
    return Exit::CouldNot;
}

}  // namespace Corvane::FileTool
