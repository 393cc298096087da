#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Corvane/Pellin/DataChunk.h"
#include "faults/Scenario.h"
#include "support/Files.h"

namespace faults {

using Corvane::Pellin::DataChunk;

// The platform's chunk at this time, whose record has so many bytes.
std::unique_ptr<DataChunk> MakeChunk(std::int64_t time, std::uint64_t size);

struct ChunkSetup {
    std::int64_t time;
    std::uint64_t size;
};

struct AppenderSetup {
    std::string name;
    std::vector<ChunkSetup> stored;    // what the file holds before; none: there is no file
    std::optional<std::size_t> bad;    // which of them is damaged
    std::uint64_t maxSize;             // 0: unbounded
    std::vector<ChunkSetup> appended;  // a time that is already there is refused
};

// An appender is constructed (reopening the file, if there is one), gets chunks and is destroyed.
class AppenderScenario : public Scenario {
public:
    explicit AppenderScenario(AppenderSetup setup);

    void Prepare() override;
    void Run() override;
    void Check(const std::vector<support::SystemCall>& calls) const override;
    bool Succeeded() const override;
    bool Recovered() const override;

private:
    enum class End { kHeld, kRefused, kThrown };
    struct Chunk {
        std::unique_ptr<DataChunk> chunk;
        std::string record;
        std::int64_t time;
        End end;
    };

    std::uint64_t GoodRecords(std::uint64_t loaded) const;
    std::string ExpectedImage(std::uint64_t loaded) const;

    AppenderSetup setup_;
    support::TemporaryFolder folder_;
    std::string path_;
    std::vector<std::uint64_t> ends_;  // byte positions behind the stored records that are good
    std::string file_;                 // before
    std::vector<Chunk> chunks_;
    bool constructed_ = false;
    std::size_t timePoints_ = 0;
};

// The appenders that are put to the test.
std::vector<AppenderSetup> AppenderSetups();

}  // namespace faults
