#include "chunkfile/Commands.h"

int main(int count, char** arguments)
{
    return Corvane::FileTool::Run(count, arguments);
}
