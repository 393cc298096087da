#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace model {

// What one life has shown.
struct Outcome {
    std::string difference;       // the first one between library and model; empty if there is none
    std::string steps;            // what was done, a line each
    std::set<std::string> texts;  // its log entries (level and text) and exceptions, with # for each number
};

// Lives one life of chunk files with the library and with the model, each in a subfolder, and compares them after every
// step. The choices decide what happens; where they end, the life ends. While it runs, it changes the process's working
// directory, file size limit and log sink.
Outcome Live(const std::string& folder, const std::string& choices);

}  // namespace model
