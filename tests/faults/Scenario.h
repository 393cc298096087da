#pragma once

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/SystemCalls.h"
#include "support/Texts.h"

namespace faults {

using support::Lines;

// What a scripted collaborator throws.
struct CollaboratorFault {};

// The fault of a run, if it throws.
struct Fault {
    bool allocation = false;
    bool collaborator = false;
    bool persistently = false;
};

// What can be observed of a run.
struct Traces {
    std::vector<support::SystemCall> calls;
    Lines lines;  // each log entry as "<level> <message>"
    Fault fault;
};

// One piece of work that the library does for a program, and what must hold afterwards, whatever failed meanwhile.
class Scenario {
public:
    Scenario() = default;
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;
    virtual ~Scenario() = default;

    // Puts the files into their initial state.
    virtual void Prepare() = 0;

    // Calls the library and nothing else that could fail. A call that throws is made a second time at most.
    virtual void Run() = 0;

    // Expects the results, files, exceptions and log entries that the kernel's answers and the fault allow.
    virtual void Check(const Traces& traces) const = 0;

    // Whether all work was done.
    virtual bool Succeeded() const = 0;

    // Whether each call that failed after construction worked the second time.
    virtual bool Recovered() const = 0;

    // What the last run's calls threw: "std::bad_alloc", "CollaboratorFault" or "std::runtime_error: <text>".
    std::vector<std::string> thrown;

protected:
    // Makes a call of the library and notes what it throws.
    template <typename Call>
    void Try(const Call& call)
    {
        try {
            call();
        } catch (const std::bad_alloc&) {
            Note("std::bad_alloc", "");
        } catch (const CollaboratorFault&) {
            Note("CollaboratorFault", "");
        } catch (const std::runtime_error& error) {
            Note("std::runtime_error: ", error.what());
        }
    }

private:
    void Note(const char* type, const char* text);
};

// What the kernel moved by calls of this name, in bytes.
std::uint64_t Moved(const std::vector<support::SystemCall>& calls, const std::string& name);

// Whether a memory call failed; the library may then throw std::bad_alloc.
bool MemoryRefused(const std::vector<support::SystemCall>& calls);

// Expects these log entries; if an exception interrupted the run, the first few of them.
void ExpectLines(const Traces& traces, const Lines& expected, bool interrupted);

// The log entries since the last call, each as "<level> <message>". Each test program has its own.
Lines TakeLogLines();

}  // namespace faults
