#pragma once

#include <optional>
#include <string>

#include "Corvane/File/DataChunkFileScanner.h"
#include "Corvane/Time/TimePoint.h"
#include "chunkfile/FileBytes.h"
#include "chunkfile/Output.h"

namespace Corvane::FileTool {

/// The records of a file that needs no Plan: all that the header counts are good, and their times ascend. Each is read
/// once for the fresh file, and lies at the same position in both.
class SoundFile : public ChunkSource {
public:
    /// What Next throws if the file is another one.
    struct NeedsPlan {};

    SoundFile(const Input& input, const Options& options, Terminal& terminal)
        : input_(input), options_(options), terminal_(terminal), scanner_(input.Path()), bytes_(input)
    {
    }

    const Pellin::DataChunk* Next() override;
    std::string Where() override;
    void Compare(const WrittenRecord& record) override;
    void Confirm() override;
    bool HasDistinctTimes() const override { return true; }

private:
    const Input& input_;
    const Options& options_;
    Terminal& terminal_;
    File::DataChunkFileScanner scanner_;
    std::optional<Time::TimePoint> last_;
    FileBytes bytes_;
    std::optional<FileBytes> fresh_;
};

}  // namespace Corvane::FileTool
