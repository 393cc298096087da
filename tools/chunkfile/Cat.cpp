#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

Exit Cat(const Options& /*options*/, Terminal& terminal)
{
    terminal.Error("Cat is not written yet");
    return Exit::CouldNot;
}

}  // namespace Corvane::FileTool
