#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

Exit Check(const Options& /*options*/, Terminal& terminal)
{
    terminal.Error("Check is not written yet");
    return Exit::CouldNot;
}

}  // namespace Corvane::FileTool
