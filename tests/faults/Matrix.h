#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "faults/Scenario.h"

namespace faults {

// Runs a scenario again and again, each time with one thing that fails, and checks after each time that the scenario's
// expectations hold, that no descriptor and no memory mapping is left, and that the scenario then works undisturbed.
class Matrix {
public:
    explicit Matrix(Scenario& scenario);

    // Every system call × every error that it could give; where the image is large, two of them: small images show how
    // each is taken.
    void FailSystemCalls();

    // Every read, write and attribute call × every kind of short result.
    void ShortenSystemCalls();

    void FailAllocations();

    // Makes someone fail at his k-th use, for every k until there is no such use: fail(k, persistently) arms him, and
    // disarm() tells whether he failed.
    void FailEveryUse(const std::string& who, const std::function<void(std::uint64_t, bool)>& fail,
                      const std::function<bool()>& disarm);

    std::uint64_t Cases() const { return cases_; }

private:
    using Arm = std::function<void(support::SystemCalls&, bool persistently)>;
    using Disarm = std::function<bool(support::SystemCalls&)>;

    std::vector<support::SystemCall> RunUndisturbed();
    bool RunCase(const std::string& what, bool persistently, const Arm& arm, const Disarm& disarm);
    void RunBoth(const std::string& what, const Arm& arm);
    void CheckAfter(bool persistently, const std::vector<support::SystemCall>& calls);

    Scenario& scenario_;
    std::set<int> descriptors_;
    std::uint64_t mapped_;
    std::vector<support::SystemCall> calls_;     // of the undisturbed run
    std::map<void*, std::uint64_t> unmapLater_;  // what a failed munmap left, in bytes
    std::uint64_t cases_ = 0;
};

}  // namespace faults
