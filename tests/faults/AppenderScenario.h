#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/Pellin/DataChunk.h"
#include "faults/Scenario.h"
#include "support/Files.h"

namespace faults {

using Corvane::Pellin::DataChunk;

// The platform's chunk with this time and a record of `size` bytes.
std::unique_ptr<DataChunk> MakeChunk(std::int64_t time, std::uint64_t size);

struct ChunkSetup {
    std::int64_t time;
    std::uint64_t size;
};

struct AppenderSetup {
    std::string name;
    std::vector<ChunkSetup> stored;    // in the file before the run; empty: there is no file
    std::optional<std::size_t> bad;    // the index of the damaged one
    std::uint64_t maxSize;             // 0: unbounded
    std::vector<ChunkSetup> appended;  // a time that the appender holds is refused
    bool flushed = false;              // by a call, before the destructor
    bool asked = false;                // for its time points, after each chunk
};

inline void PrintTo(const AppenderSetup& setup, std::ostream* stream)
{
    *stream << setup.name;
}

// An appender is constructed (reopening the file, if there is one), takes chunks and is destroyed.
class AppenderScenario : public Scenario {
public:
    explicit AppenderScenario(AppenderSetup setup);

    void Prepare() override;
    void Run() override;
    void Check(const Traces& traces) const override;
    bool Succeeded() const override;
    bool Recovered() const override;

private:
    enum class End { kHeld, kRefused, kThrown };
    struct Chunk {
        std::unique_ptr<DataChunk> chunk;
        std::string record;
        std::string printed;  // its time point
        std::int64_t time;
        End end;
    };

    using Calls = std::vector<support::SystemCall>;

    void AppendAll(Corvane::File::DataChunkFileAppender& appender);
    void Ask(const Corvane::File::DataChunkFileAppender& appender);
    static std::uint64_t Loaded(const Calls& calls);
    std::uint64_t GoodRecords(std::uint64_t loaded) const;
    std::string ExpectedImage(std::uint64_t loaded) const;
    Lines ConstructionLines(std::uint64_t loaded) const;
    Lines ExpectedLines(const Calls& calls) const;
    std::string ConstructionFailure(const Calls& calls) const;
    void CheckRefused(const Traces& traces) const;
    void CheckFile(const Calls& calls) const;
    void CheckTimePoints(std::uint64_t loaded) const;

    AppenderSetup setup_;
    support::TemporaryFolder folder_;
    std::string path_;
    std::vector<std::uint64_t> ends_;  // the end positions of the good stored records
    std::string file_;                 // before
    std::vector<Chunk> chunks_;
    bool constructed_ = false;
    bool flushThrew_ = false;
    std::optional<std::size_t> timePoints_;  // none: both attempts threw
};

// The appenders under test.
std::vector<AppenderSetup> AppenderSetups();

}  // namespace faults
