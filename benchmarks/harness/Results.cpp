#include "harness/Results.h"

#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

namespace bench {

namespace {

// The value in the first line with this start in a file under /proc.
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
    static const std::map<std::uint64_t, std::string> names = {
        {0xef53, "ext4"}, {0x58465342, "xfs"}, {0x9123683e, "btrfs"}, {0x01021994, "tmpfs"}};
    const auto type = static_cast<std::uint64_t>(status.f_type);
    return names.contains(type) ? names.at(type) : "file system " + std::to_string(type);
}

// "6.18" of "6.18.44-custom": a build's own name tells a reader nothing.
std::string KernelVersion()
{
    utsname kernel = {};
    ::uname(&kernel);
    const std::string release = kernel.release;
    return release.substr(0, release.find_first_not_of("0123456789", release.find('.') + 1));
}

}  // namespace

void SaveResult(const Options& options, const std::vector<std::pair<std::string, std::string>>& fields)
{
    if (options.results.empty()) {
        return;
    }
    std::ostringstream line;
    for (const auto& [name, value] : fields) {
        line << (line.tellp() == 0 ? '{' : ',') << Quoted(name) << ':' << value;
    }
    std::ofstream(options.results, std::ios::app) << line.str() << "}\n";
}

std::string Quoted(std::string_view text)
{
    return '"' + std::string(text) + '"';
}

std::string Number(double value)
{
    std::ostringstream text;
    text.precision(6);
    text << value;
    return text.str();
}

void SaveMachine(const Options& options)
{
    const std::uint64_t memory = std::stoull(ProcLine("/proc/meminfo", "MemTotal")) >> 10U;
    const bool guest = ProcLine("/proc/cpuinfo", "flags").find(" hypervisor") != std::string::npos;
    SaveResult(options, {{"workload", Quoted("machine")},
                         {"processor", Quoted(ProcLine("/proc/cpuinfo", "model name"))},
                         {"processors", std::to_string(::sysconf(_SC_NPROCESSORS_ONLN))},
                         {"memory_mib", std::to_string(memory)},
                         {"kernel", Quoted(KernelVersion())},
                         {"virtual", guest ? "true" : "false"},
                         {"file_system", Quoted(FileSystemOf(options.folder))},
                         {"bytes", std::to_string(options.bytes)},
                         {"clock", Quoted(options.processorTime ? "processor time" : "elapsed time")}});
}

}  // namespace bench
