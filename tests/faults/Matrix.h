#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "faults/Scenario.h"

namespace faults {

// Runs a scenario again and again, each time with one fault or two. After each run the scenario's expectations hold, no
// descriptor and no memory mapping is left, and the scenario works undisturbed.
class Matrix {
public:
    explicit Matrix(Scenario& scenario);

    // Every system call × every error that it could give. For a large image two errors do: small images try them all.
    void FailSystemCalls();

    // Every read, write and attribute call × every kind of short result.
    void ShortenSystemCalls();

    void FailAllocations();

    // Every allocation while one system call fails too, for every call that is made once and whose failure is reported.
    // Not the last write: it is the destructor's, whose failed text ends the process.
    void FailAllocationsAndCalls();

    // Every use of a collaborator: fail(k, persistently) makes the k-th use throw, disarm() says whether it did.
    void FailCollaborator(const std::string& who, const std::function<void(std::uint64_t, bool)>& fail,
                          const std::function<bool()>& disarm);

    std::uint64_t Cases() const { return cases_; }

private:
    using Arm = std::function<void(support::SystemCalls&, bool persistently)>;
    using Disarm = std::function<bool(support::SystemCalls&)>;

    Traces Run(const std::function<void(support::SystemCalls&)>& before,
               const std::function<void(support::SystemCalls&)>& after);
    std::vector<support::SystemCall> RunUndisturbed();
    bool RunCase(const std::string& what, const Fault& fault, const Arm& arm, const Disarm& disarm);
    void RunBoth(const std::string& what, const Arm& arm);
    void FailAllocationsWith(const std::string& what, const std::function<void(support::SystemCalls&)>& armAnother);
    void CheckThrown(const Fault& fault) const;
    void CheckAfter(const Traces& traces);

    Scenario& scenario_;
    std::set<int> descriptors_;
    std::uint64_t mapped_;
    std::vector<support::SystemCall> calls_;     // of the undisturbed run
    std::map<void*, std::uint64_t> unmapLater_;  // left by a failed munmap, with the size in bytes
    std::uint64_t cases_ = 0;
};

}  // namespace faults
