#include "harness/Options.h"

#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>

namespace bench {

namespace {

using Setter = std::function<void(const std::string& value)>;

void MakeQuick(Options& options)
{
    options.quick = true;
    options.bytes = 16U << 20U;
    options.seconds = 0.2;
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments)
{
    Options options;
    std::string parent = std::filesystem::temp_directory_path();
    const std::map<std::string, Setter> setters = {
        {"--mib", [&](const std::string& value) { options.bytes = std::stoull(value) << 20U; }},
        {"--seconds", [&](const std::string& value) { options.seconds = std::stod(value); }},
        {"--folder", [&](const std::string& value) { parent = value; }},
        {"--results", [&](const std::string& value) { options.results = value; }}};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--quick") {
            MakeQuick(options);
        } else if (argument == "--processor-time") {
            options.processorTime = true;
        } else if (setters.contains(argument)) {
            setters.at(argument)(arguments.at(++i));
        } else if (argument.rfind('-', 0) == 0) {
            throw std::invalid_argument(argument);
        } else {
            options.only.push_back(argument);
        }
    }
    options.folder = parent + "/bench-files";
    return options;
}

}  // namespace bench
