#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Corvane/File/DataChunkFileScanner.h"
#include "Corvane/Pellin/DataChunk.h"
#include "faults/Scenario.h"
#include "support/Files.h"

namespace faults {

// A scanner walks up to a damaged record, searches the next good one, and walks to the end of the file.
class ScannerScenario : public Scenario {
public:
    ScannerScenario();

    void Prepare() override;
    void Run() override;
    void Check(const Traces& traces) const override;
    bool Succeeded() const override;
    bool Recovered() const override;

private:
    static constexpr std::size_t kChunks = 24;
    static constexpr std::size_t kBad = 21;

    void ReadAll(Corvane::File::DataChunkFileScanner& scanner);
    void Note(const Corvane::File::DataChunkFileScanner& scanner);

    support::TemporaryFolder folder_;
    std::string path_;
    std::string file_;
    std::vector<Corvane::Pellin::DataChunk> chunks_;
    std::vector<std::uint64_t> positions_;
    std::vector<std::size_t> found_;  // the indices of the chunks that were given; has room for all
    bool areRight_ = false;           // what was given was a chunk of the file
    std::uint64_t announced_ = 0;     // chunks, by the scanner's count
    bool constructed_ = false;
};

}  // namespace faults
