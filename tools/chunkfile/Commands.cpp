#include "chunkfile/Commands.h"

namespace Corvane::FileTool {

Exit Graver(Exit left, Exit right)
{
    for (const Exit code : {Exit::Usage, Exit::CouldNot, Exit::Found}) {
        if (left == code || right == code) {
            return code;
        }
    }
    return Exit::Fine;
}

std::string ErrorText(const std::string& file, const std::string& text)
{
    return file + ": " + text;
}

std::string ErrorText(const std::string& file, std::uint64_t position, std::uint64_t record, const std::string& text)
{
    return ErrorText(file, "byte " + std::to_string(position) + " (record " + std::to_string(record) + "): " + text);
}

}  // namespace Corvane::FileTool
