#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
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
    static constexpr std::size_t kChunks = 6;

    support::TemporaryFolder folder_;
    std::string path_;
    std::string file_;
    std::vector<Corvane::Pellin::DataChunk> chunks_;
    std::vector<Corvane::Pellin::DataChunk> found_;  // has room for all
    std::size_t announced_ = 0;                      // of the chunks, as many as the reader says there are
    bool constructed_ = false;
};

}  // namespace faults
