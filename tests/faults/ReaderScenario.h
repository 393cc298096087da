#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Corvane/File/DataChunkFileReader.h"
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
    void Check(const Traces& traces) const override;
    bool Succeeded() const override;
    bool Recovered() const override;

private:
    static constexpr std::size_t kChunks = 6;

    void ReadAll(Corvane::File::DataChunkFileReader& reader);
    void CheckConstruction(const Traces& traces) const;

    support::TemporaryFolder folder_;
    std::string path_;
    std::string file_;
    std::vector<Corvane::Pellin::DataChunk> chunks_;
    std::vector<Corvane::Pellin::DataChunk> found_;  // has room for all
    std::size_t announced_ = 0;                      // chunks, by the reader's count
    bool constructed_ = false;
};

}  // namespace faults
