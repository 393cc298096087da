#include "chunkfile/Commands.h"

int main(int count, char** arguments)
{
    return Corvane::FileTool::RunTool(count, arguments);
}
