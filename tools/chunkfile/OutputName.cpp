#include "chunkfile/OutputName.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace Corvane::FileTool {

namespace {

constexpr std::size_t kDigits = 4;  // at least

bool StatusOf(const std::string& path, struct stat& status)
{
    return (path == "-" ? ::fstat(STDIN_FILENO, &status) : ::stat(path.c_str(), &status)) == 0;
}

}  // namespace

std::string PartName(const std::string& out, std::uint64_t part)
{
    std::string digits = std::to_string(part);
    digits.insert(0, kDigits - std::min(kDigits, digits.size()), '0');
    std::filesystem::path path(out);
    const std::string extension = path.extension();
    return path.replace_extension(digits).concat(extension);
}

void RefuseName(const std::string& name, const Options& options)
{
    struct stat there = {};
    if (StatusOf(name, there)) {
        for (const std::string& path : options.paths) {
            struct stat source = {};
            if (StatusOf(path, source) && source.st_dev == there.st_dev && source.st_ino == there.st_ino) {
                throw std::runtime_error(ErrorText(
                    name,
                    "is the same file as " + (path == "-" ? "standard input" : path) + ", which would be replaced"));
            }
        }
    }
    if (!options.force && Exists(name)) {
        throw std::runtime_error(ErrorText(name, "exists; --force replaces it"));
    }
}

bool Exists(const std::string& name)
{
    struct stat status = {};
    return ::lstat(name.c_str(), &status) == 0;
}

}  // namespace Corvane::FileTool
