#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "Workloads.h"

namespace bench {

namespace {

constexpr const char* kUsage =
    "usage: bench [--quick] [--processor-time] [--mib N] [--seconds N] [--folder DIR] [--results FILE] [W1 ... W9 "
    "growth]\n";

Options ParseArguments(const std::vector<std::string>& arguments)
{
    Options options;
    std::string folder = std::filesystem::temp_directory_path();
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const auto value = [&] { return arguments.at(++i); };
        if (argument == "--quick") {
            options.quick = true;
            options.bytes = 16U << 20U;
            options.seconds = 0.2;
        } else if (argument == "--processor-time") {
            MeasureProcessorTime();
        } else if (argument == "--mib") {
            options.bytes = std::stoull(value()) << 20U;
        } else if (argument == "--seconds") {
            options.seconds = std::stod(value());
        } else if (argument == "--folder") {
            folder = value();
        } else if (argument == "--results") {
            options.results = value();
        } else if (argument.rfind('-', 0) == 0) {
            throw std::invalid_argument(argument);
        } else {
            options.only.push_back(argument);
        }
    }
    options.folder = folder + "/bench-files";  // of our own: it is removed in the end
    return options;
}

// A new folder that goes with what is in it, however the measurements end.
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

// What follows the colon in the first line of a file under /proc that starts so.
std::string ProcLine(const char* file, const std::string& start)
{
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(start, 0) == 0) {
            return line.substr(std::min(line.find_first_not_of(" \t:", start.size()), line.size()));
        }
    }
    return "unknown";
}

std::string FileSystemOf(const std::string& folder)
{
    struct statfs status = {};
    ::statfs(folder.c_str(), &status);
    switch (status.f_type) {
        case 0xef53:
            return "ext4";
        case 0x58465342:
            return "xfs";
        case 0x9123683e:
            return "btrfs";
        case 0x01021994:
            return "tmpfs";
        default:
            return "file system " + std::to_string(status.f_type);
    }
}

void RecordMachine(const Options& options)
{
    utsname kernel = {};
    ::uname(&kernel);
    const long processors = ::sysconf(_SC_NPROCESSORS_ONLN);
    const std::uint64_t memory = std::stoull(ProcLine("/proc/meminfo", "MemTotal")) >> 10U;
    Record(options,
           {{"workload", Quoted("machine")},
            {"processor", Quoted(ProcLine("/proc/cpuinfo", "model name"))},
            {"processors", std::to_string(processors)},
            {"memory_mib", std::to_string(memory)},
            {"kernel", Quoted(kernel.release)},
            {"virtual", ProcLine("/proc/cpuinfo", "flags").find(" hypervisor") == std::string::npos ? "false" : "true"},
            {"file_system", Quoted(FileSystemOf(options.folder))},
            {"bytes", std::to_string(options.bytes)},
            {"clock", Quoted(MeasuresProcessorTime() ? "processor time" : "time")}});
}

}  // namespace

int Main(const std::vector<std::string>& arguments, const std::function<void(const Options&)>& measure)
{
    try {
        const Options options = ParseArguments(arguments);
        const Folder folder(options.folder);
        RecordMachine(options);
        PrintHead(options);
        measure(options);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << '\n' << kUsage;
        return 2;
    }
}

}  // namespace bench
