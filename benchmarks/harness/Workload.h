#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// One way to do a piece of work.
struct Contender {
    std::string name;  // "limit", "ours", "straightforward" or another store's
    // The work. Its result (chunks accepted, or the sum of what was read) must be the same for all contenders.
    std::function<std::uint64_t()> run;
    std::function<void()> prepare = [] {};  // before every run, not timed
};

// The most that our time may be, as a multiple of another contender's time.
struct Goal {
    std::string_view against;  // that contender's name
    double atMost;
    std::string_view reason;  // why it holds on any machine
};

// One piece of work and its contenders. They are made only for the measurement, because their buffers are large.
struct Workload {
    std::string id;
    std::string what;
    std::uint64_t bytes;       // moved by one run
    std::uint64_t operations;  // made by one run: chunks, calls, files
    std::optional<Goal> goal;
    std::function<std::vector<Contender>()> contenders;
    std::string file;          // compared between contenders after their first run; may be empty
    double seconds = 0;        // for its rounds; 0: Options::seconds
    std::uint64_t memory = 0;  // bytes for WarmFreeMemory before each run
    bool costs = true;         // false if a contender has threads: CostOf runs it in a child, which would lack them
};

}  // namespace bench
