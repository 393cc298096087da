#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "faults/Scenario.h"
#include "support/Files.h"

namespace faults {

// A reader walks through a file of six chunks.
class ReaderScenario : public Scenario {
public:
    ReaderScenario();

    void Prepare() override;
    void Run() override;
    void Check(const std::vector<support::SystemCall>& calls) const override;
    bool Succeeded() const override;
    bool Recovered() const override;

private:
    struct Found {
        std::int64_t time;
        std::uint64_t size;
    };

    static constexpr std::size_t kChunks = 6;

    support::TemporaryFolder folder_;
    std::string path_;
    std::string file_;
    std::vector<Found> expected_;
    std::vector<Found> found_;  // has room for all
    bool constructed_ = false;
    bool thrown_ = false;  // also when done again
};

}  // namespace faults
