#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

Exit List(const Options& /*options*/, Terminal& terminal)
{
    terminal.Error("List is not written yet");
    return Exit::CouldNot;
}

}  // namespace Corvane::FileTool
