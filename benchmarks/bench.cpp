// Measures each workload against its limit, side by side: see docs/performance.md.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "Workloads.h"

namespace {

using bench::Options;
using bench::Workload;

constexpr const char* kUsage =
    "usage: bench [--quick] [--processor-time] [--mib N] [--seconds N] [--folder DIR] [--results FILE] [W1 ... W9 "
    "growth]\n";

Options ParseArguments(const std::vector<std::string>& arguments)
{
    Options options;
    options.folder = std::filesystem::current_path() / "bench-files";
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const auto value = [&] { return arguments.at(++i); };
        if (argument == "--quick") {
            options.quick = true;
            options.bytes = 16U << 20U;
            options.seconds = 0.2;
        } else if (argument == "--processor-time") {
            bench::MeasureProcessorTime();
        } else if (argument == "--mib") {
            options.bytes = std::stoull(value()) << 20U;
        } else if (argument == "--seconds") {
            options.seconds = std::stod(value());
        } else if (argument == "--folder") {
            options.folder = value();
        } else if (argument == "--results") {
            options.results = value();
        } else if (argument.rfind('-', 0) == 0) {
            throw std::invalid_argument(argument);
        } else {
            options.only.push_back(argument);
        }
    }
    return options;
}

bool Wanted(const Options& options, const std::string& id)
{
    return options.only.empty() || std::find(options.only.begin(), options.only.end(), id) != options.only.end();
}

// Whether all goals held.
bool MeasureAll(const Options& options)
{
    bool holds = true;
    for (const auto& make : {bench::WritingWorkloads, bench::ReopeningWorkloads, bench::ReadingWorkloads,
                             bench::AttributeWorkloads, bench::SmallFileWorkloads, bench::RefusalWorkloads}) {
        for (const Workload& workload : make(options)) {
            if (Wanted(options, workload.id)) {
                holds = bench::Measure(workload, options) && holds;
            }
        }
    }
    if (Wanted(options, "growth")) {
        holds = bench::MeasureGrowth(options) && holds;
    }
    return holds;
}

}  // namespace

int main(int count, char** arguments)
{
    try {
        const Options options = ParseArguments({arguments + 1, arguments + count});
        std::filesystem::create_directories(options.folder);
        bench::PrintHead(options);
        const bool holds = MeasureAll(options);
        std::filesystem::remove_all(options.folder);
        std::cout << (holds ? "\nAll goals hold.\n" : "\nSome goals were missed.\n");
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << '\n' << kUsage;
        return 2;
    }
}
