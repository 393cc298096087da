// A life of chunk files: the input's bytes decide what happens in it, and library and model must agree.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "Support.h"
#include "model/Life.h"

namespace {

constexpr std::size_t kMostChoices = 400;  // longer lives are slow and show nothing more

// The folder of the lives, until the process ends.
class Folder {
public:
    Folder() : path_(std::filesystem::temp_directory_path() / "livesXXXXXX")
    {
        fuzz::Check(::mkdtemp(path_.data()) != nullptr, "a temporary folder can be made");
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    const model::Outcome outcome = model::Live(folder.Path(), std::string(data, data + std::min(size, kMostChoices)));
    if (!outcome.difference.empty()) {
        std::fprintf(stderr, "%s%s\n", outcome.steps.c_str(), outcome.difference.c_str());
    }
    fuzz::Check(outcome.difference.empty(), "library and model agree");
    return 0;
}
