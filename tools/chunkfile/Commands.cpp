#include "chunkfile/Commands.h"

#include <algorithm>

namespace Corvane::FileTool {

Exit Graver(Exit left, Exit right)
{
    return left == Exit::Fine || right == Exit::Fine ? std::max(left, right) : std::min(left, right);
}

std::string ErrorText(const std::string& file, const std::string& text)
{
    return file + ": " + text;
}

std::string ErrorText(const std::string& file, std::uint64_t position, std::uint64_t record, const std::string& text)
{
    return ErrorText(file, "byte " + std::to_string(position) + " (record " + std::to_string(record) + "): " + text);
}

std::string Number(std::uint64_t number, const char* one, const char* many)
{
    return std::to_string(number) + " " + (number == 1 ? one : many);
}

std::string Records(std::uint64_t number)
{
    return Number(number, "record", "records");
}

std::string Bytes(std::uint64_t number)
{
    return Number(number, "byte", "bytes");
}

}  // namespace Corvane::FileTool
