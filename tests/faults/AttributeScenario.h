#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "faults/Scenario.h"
#include "support/Files.h"

namespace faults {

// The arguments and results of an operation on attributes.
struct AttributeWork {
    std::string path;
    int fd = -1;
    std::string name = "user.first";
    std::string newValue = "another value";
    std::string value;
    std::set<std::string> names;
    bool success = false;
};

struct AttributeOperation {
    std::string name;
    bool changes;            // the attribute
    std::string valueAfter;  // if it changes the attribute; empty: it removes it
    std::function<void(AttributeWork&)> call;
    // The texts of a failure: logged with the reason, for the first or the second system call; and thrown.
    std::function<std::string(const AttributeWork&, bool afterFirst)> text;
    // NOLINTNEXTLINE(readability-redundant-member-init): without a value, g++ wants one for each flag variant
    std::function<std::string(const AttributeWork&)> thrownText = {};
};

// One of the twelve operations on a file with two attributes.
class AttributeScenario : public Scenario {
public:
    explicit AttributeScenario(AttributeOperation operation);
    ~AttributeScenario() override;

    void Prepare() override;
    void Run() override;
    void Check(const Traces& traces) const override;
    bool Succeeded() const override;
    bool Recovered() const override;

private:
    enum class End { kSuccess, kFailure, kThrown };  // kThrown: std::bad_alloc

    void CheckReport(const Traces& traces) const;
    void CheckResult(const std::vector<support::SystemCall>& calls) const;

    AttributeOperation operation_;
    support::TemporaryFolder folder_;
    AttributeWork work_;
    std::size_t listSize_ = 0;  // bytes of the kernel's list of all names
    End end_ = End::kThrown;
};

std::vector<AttributeOperation> AttributeOperations();

}  // namespace faults
