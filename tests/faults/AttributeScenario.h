#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "faults/Scenario.h"
#include "support/Files.h"

namespace faults {

// What an operation on attributes is given, and what it gives back.
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
    std::string valueAfter;  // if it does: the value; empty: it is gone
    std::function<void(AttributeWork&)> call;
};

// One of the twelve operations on a file with two attributes.
class AttributeScenario : public Scenario {
public:
    explicit AttributeScenario(AttributeOperation operation);
    ~AttributeScenario() override;

    void Prepare() override;
    void Run() override;
    void Check(const std::vector<support::SystemCall>& calls) const override;
    bool Succeeded() const override;
    bool Recovered() const override;

private:
    enum class End { kSuccess, kFailure, kThrown };  // kThrown: memory was short

    AttributeOperation operation_;
    support::TemporaryFolder folder_;
    AttributeWork work_;
    std::size_t listSize_ = 0;  // bytes of the kernel's list of all names
    End end_ = End::kThrown;
};

// The twelve.
std::vector<AttributeOperation> AttributeOperations();

}  // namespace faults
