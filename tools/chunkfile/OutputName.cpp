#include "chunkfile/OutputName.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>

namespace Corvane::FileTool {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kDigits = 4;  // at least

bool StatusOf(const std::string& path, struct stat& status)
{
    return (path == "-" ? ::fstat(STDIN_FILENO, &status) : ::stat(path.c_str(), &status)) == 0;
}

// Only a regular file can be replaced. A dangling link is nothing here.
void RefuseKind(const std::string& name)
{
    struct stat there = {};
    if (::stat(name.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
        throw std::runtime_error(ErrorText(name, S_ISDIR(there.st_mode) ? "is a folder" : "is not a regular file"));
    }
}

// std::filesystem's iterator ends the program if memory runs out.
struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

// The part of OUT that a file of this name is. 0: none.
std::uint64_t PartOf(const std::string& out, const std::string& fileName)
{
    const std::size_t begin = fs::path(out).stem().native().size() + 1;
    std::uint64_t part = 0;
    if (begin < fileName.size()) {
        std::from_chars(fileName.data() + begin, fileName.data() + fileName.size(), part);
    }
    return fs::path(PartName(out, part)).filename() == fileName ? part : 0;
}

}  // namespace

std::string PartName(const std::string& out, std::uint64_t part)
{
    std::string digits = std::to_string(part);
    digits.insert(0, kDigits - std::min(kDigits, digits.size()), '0');
    fs::path path(out);
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
    RefuseKind(name);
    if (!options.force && Exists(name)) {
        throw std::runtime_error(ErrorText(name, "exists; --force replaces it"));
    }
}

void RefuseParts(const Options& options)
{
    RefuseKind(options.output);
    const std::string path = fs::path(options.output).parent_path();
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.empty() ? "." : path.c_str()));
    std::set<std::uint64_t> parts;
    // A folder that cannot be listed is no error: each part is looked at again before it is written.
    // NOLINTNEXTLINE(concurrency-mt-unsafe): this program has one thread
    while (const dirent* const entry = folder ? ::readdir(folder.get()) : nullptr) {
        parts.insert(PartOf(options.output, entry->d_name));
    }
    parts.erase(0);
    for (const std::uint64_t part : parts) {
        RefuseName(PartName(options.output, part), options);
    }
}

bool Exists(const std::string& name)
{
    struct stat status = {};
    return ::lstat(name.c_str(), &status) == 0;
}

}  // namespace Corvane::FileTool
