#include "faults/Scenario.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/Bookkeeping.h"

namespace faults {

using support::SystemCall;

void Scenario::Note(const char* type, const char* text)
{
    support::bookkeeping = true;
    thrown.push_back(std::string(type) + text);
    support::bookkeeping = false;
}

std::uint64_t Moved(const std::vector<SystemCall>& calls, const std::string& name)
{
    std::uint64_t bytes = 0;
    for (const SystemCall& call : calls) {
        bytes += call.name == name && call.result > 0 ? static_cast<std::uint64_t>(call.result) : 0;
    }
    return bytes;
}

bool MemoryRefused(const std::vector<SystemCall>& calls)
{
    return std::any_of(calls.begin(), calls.end(), [](const SystemCall& call) {
        return call.result == -1 && (call.name == "mmap" || call.name == "mremap" || call.name == "mprotect");
    });
}

void ExpectLines(const Traces& traces, const Lines& expected, bool interrupted)
{
    if (!interrupted) {
        EXPECT_EQ(traces.lines, expected);
        return;
    }
    ASSERT_LE(traces.lines.size(), expected.size());
    EXPECT_TRUE(std::equal(traces.lines.begin(), traces.lines.end(), expected.begin()))
        << testing::PrintToString(traces.lines);
}

}  // namespace faults
