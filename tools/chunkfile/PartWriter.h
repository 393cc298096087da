#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "chunkfile/EqualTimes.h"
#include "chunkfile/Output.h"

namespace Corvane::FileTool {

constexpr std::uint64_t kMostBytes = 2'147'479'552;  ///< of an appender's one `write`: a limit of Linux

/// Ctrl-C, where it ends everything.
struct InterruptedError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Whether there are parts.
inline bool Splits(const Options& options)
{
    return options.splitBytes != 0 || options.splitNanoseconds != 0;
}

/// Writes one part after another. Members throw what WriteChunks throws, and InterruptedError.
class PartWriter {
public:
    PartWriter(ChunkSource& source, const Options& options, Terminal& terminal);

    const Written& Run();
    const Written& Done() const { return written_; }

private:
    struct Part {
        std::uint64_t first = 0;  // the number of its first chunk
        std::uint64_t records = 0;
        std::uint64_t bytes = File::kHeaderSize;
        std::int64_t begin = 0;  // the time of its first record; 0 if the platform does not tell it
    };

    void WritePart(const std::string& name);
    void Fill(File::DataChunkFileAppender* appender);
    void Take();
    void Shift();
    bool BeginsPart(const Pellin::DataChunk& chunk) const;
    [[noreturn]] bool RefuseSize(const Pellin::DataChunk& chunk) const;
    void Prove(const std::string& freshName, const std::string& name);
    void StopIfInterrupted() const;

    ChunkSource& source_;
    const Options& options_;
    Terminal& terminal_;
    std::uint64_t maxSize_;  // bytes; 0: none
    std::uint64_t most_;     // bytes that a part can have
    std::uint64_t full_;     // bytes after which another part begins
    bool looksAtTimes_;
    const Pellin::DataChunk* chunk_ = nullptr;
    std::uint64_t taken_ = 0;  // chunks of the source, with chunk_
    GivenTimes times_;
    std::unique_ptr<Pellin::DataChunk> shiftedChunk_;
    std::vector<std::uint64_t> skipped_;  // numbers of chunks
    std::vector<std::uint64_t> shifted_;
    Part part_;
    Written written_;
};

}  // namespace Corvane::FileTool
