#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// One way to do a piece of work.
struct Contender {
    std::string name;               // "limit", "ours", "literal" or a peer's
    std::function<void()> prepare;  // before every run, not timed; may be empty
    // The work. What it returns (what was accepted, or the sum of what was read) must be the same for all contenders.
    std::function<std::uint64_t()> run;
};

// What a result is held against.
struct Goal {
    std::string against;  // a contender's name: the ratio of the times; "ns": nanoseconds an operation
    double atMost;
};

// One piece of work and all contenders for it. They exist only while it is measured: their buffers are large.
struct Workload {
    std::string id;
    std::string what;
    std::uint64_t bytes;       // moved by one run
    std::uint64_t operations;  // made by one run: chunks, calls, files
    std::optional<Goal> goal;
    std::function<std::vector<Contender>()> contenders;
    std::string file;          // compared between contenders after their first run; may be empty
    double seconds = 0;        // for its rounds; 0: the options'
    std::uint64_t memory = 0;  // bytes of free memory that are made to be there before each run: see WarmFreeMemory
    bool costs = true;         // CostOf each contender; not for those that keep threads, which a child would lack
};

struct Options {
    bool quick = false;  // small and short: to see that all of it works
    std::uint64_t bytes = 256ULL << 20U;
    double seconds = 8;             // for the rounds of one workload
    std::string folder;             // for the files
    std::string results;            // JSON lines are added to this file
    std::vector<std::string> only;  // workloads by id; empty: all
};

// Median and quartiles.
struct Spread {
    double median = 0;
    double low = 0;
    double high = 0;
};
Spread SpreadOf(std::vector<double> values);

// What one run takes besides time, measured in a child process of its own.
struct Cost {
    std::map<std::string, std::uint64_t> calls;  // system calls by name
    std::uint64_t faults = 0;                    // page faults
    std::uint64_t peak = 0;                      // most memory resident at a time, in bytes above that before the run
};
Cost CostOf(const Contender& contender, bool countCalls = true);

// Runs the contenders in turn, in rounds, until the time is over; prints one line each and records the results.
// Returns false if the goal was missed.
bool Measure(const Workload& workload, const Options& options);

// Prints the head of the table that Measure fills.
void PrintHead(const Options& options);

// Sees to it that so much of the machine's free memory is there. A virtual machine's host takes free memory back, and
// whoever touches it first then waits for the host: up to ten times the kernel's own work, and by chance.
void WarmFreeMemory(std::uint64_t bytes);

// Seconds of a clock that only goes on.
double Now();

// Seconds of the clock that is measured with: the same, or this thread's processor time.
void MeasureProcessorTime();
bool MeasuresProcessorTime();
double Stopwatch();

// Adds one line to the results. Values are JSON already.
void Record(const Options& options, const std::vector<std::pair<std::string, std::string>>& fields);
std::string Quoted(const std::string& text);
std::string Number(double value);

}  // namespace bench
