#include "harness/Program.h"

#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "harness/Clock.h"
#include "harness/Measure.h"
#include "harness/Results.h"

namespace bench {

namespace {

constexpr const char* kUsage =
    "usage: bench [--quick] [--processor-time] [--mib N] [--seconds N] [--folder DIR] [--results FILE] [W1 ... W11 "
    "growth]\n";

// A folder that is removed with its content when it goes out of scope.
class Folder {
public:
    explicit Folder(const std::string& path) : path_(path) { std::filesystem::create_directories(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder()
    {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }

private:
    std::filesystem::path path_;
};

}  // namespace

int Main(const std::vector<std::string>& arguments, const std::function<void(const Options&)>& measure)
{
    try {
        const Options options = ParseOptions(arguments);
        const Folder folder(options.folder);
        UseProcessorTime(options.processorTime);
        SaveMachine(options);
        PrintHead(options);
        measure(options);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << '\n' << kUsage;
        return 2;
    }
}

}  // namespace bench
