#pragma once

#include <cstdint>
#include <string>

#include "Corvane/Pellin/DataChunk.h"
#include "chunkfile/Commands.h"
#include "chunkfile/Input.h"
#include "chunkfile/Terminal.h"

/// @file
/// How recover, copy and import write chunk files.
namespace Corvane::FileTool {

/// A record of a fresh file.
struct WrittenRecord {
    std::uint64_t number;            ///< Next gave its chunk after so many others
    const Pellin::DataChunk& chunk;  ///< read back from the fresh file
    const Input& file;               ///< the fresh file
    std::uint64_t position;          ///< of the record in it
    std::uint64_t size;
    bool shifted;  ///< it got a later time, because the chunk's time was held already
};

/// Chunks for new files, one after another, with the proof that they arrived.
///
/// - **Errors**: Members throw std::runtime_error with file and position. Nothing more is then written.
class ChunkSource {
public:
    ChunkSource() = default;
    ChunkSource(const ChunkSource&) = delete;
    ChunkSource& operator=(const ChunkSource&) = delete;
    virtual ~ChunkSource() = default;

    /// The next chunk, valid until the next call; null at the end. With --dry-run it is the only member that is called.
    virtual const Pellin::DataChunk* Next() = 0;

    /// Where the last chunk of Next comes from: `a.csv: line 7`.
    virtual std::string Where() = 0;

    /// Compares a record of a fresh file with where its chunk came from. Called for all records of a part, in their
    /// order, before the part gets its name.
    virtual void Compare(const WrittenRecord& record) = 0;

    /// Called after that. Throws if the part must not get its name, because the source has changed meanwhile.
    virtual void Confirm() {}

    /// Whether no two chunks share their time. Otherwise WriteChunks finds that out, and needs 8 bytes a chunk for it.
    virtual bool HasDistinctTimes() const { return false; }

    /// Whether Ctrl-C ends the chunks, because a person types them: Next then sees Interrupted() and returns null, and
    /// the chunks so far are written. Otherwise, or before the first chunk, Ctrl-C ends the program, and a part that has
    /// no name yet is not written.
    virtual bool EndsAtInterrupt() const { return false; }
};

/// What was written, or would be with --dry-run.
struct Written {
    std::uint64_t parts = 0;
    std::uint64_t records = 0;
    std::uint64_t skipped = 0;  ///< chunks whose time was held already
    std::uint64_t shifted = 0;  ///< the same: they got a later time
};

/// Refuses options that cannot be met: std::invalid_argument for wrong usage, std::runtime_error if OUT exists or is one
/// of `options.paths`. WriteChunks does that too; call it first where much is to be done before.
void CheckOutput(const Options& options);

/// Writes the chunks to OUT, or to its parts, and prints a line for each. Each part is durable, and proved by `source`,
/// before it gets its name. If that fails, the name leads to what it led to before, and earlier parts stay. Throws
/// what CheckOutput throws, and std::runtime_error.
Written WriteChunks(ChunkSource& source, const Options& options, Terminal& terminal);

/// `FILE: byte 105 (record 1)`.
std::string PlaceText(const std::string& file, std::uint64_t position, std::uint64_t record);

/// Throws std::runtime_error if the source has changed since it was opened.
void RefuseChanged(const Input& source);

/// Prints `FILE: TEXT`, unless --quiet forbids that.
void Say(Terminal& terminal, const Options& options, const std::string& file, const std::string& text);

/// Whether Ctrl-C was pressed, or the program was asked to end, since WriteChunks began. A blocked system call then
/// fails with EINTR.
bool Interrupted();

}  // namespace Corvane::FileTool
