#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

Exit Attr(const Options& /*options*/, Terminal& terminal)
{
    terminal.Error("Attr is not written yet");
    return Exit::CouldNot;
}

}  // namespace Corvane::FileTool
