#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Corvane/Pellin/DataChunk.h"

namespace Corvane::File {

/// Reads the records of one chunk file in their order, many with one system call. For programs that walk whole files:
/// backups, converters, checks.
///
///     DataChunkFileScanner file("a.chunks");
///     while (file.Next()) {
///         Use(file.GetChunk());
///     }
///     const bool isWhole = file.GetEnd() == DataChunkFileScanner::End::AllRead;
///
/// - **Disk**: The constructor opens the file read-only and reads the header. Next and FindNext read. The destructor
///   closes the file, which is never changed. The access time stays, unless the system refuses O_NOATIME because the
///   file is another user's.
/// - **Memory**: A window of up to 256 KiB, followed by 4 GiB of readable zeros that take address space only. A search
///   needs 1.25 MiB, or 2.5 times the largest record so far, at most 2.5 GiB.
/// - **Owns**: Its descriptor, its window, and the chunk of the present record. It makes a chunk for each record and
///   destroys it before the next one.
/// - **Errors**: Throws std::runtime_error `DataChunkFileScanner: file <name>: <step>: <reason>`, for example
///   `DataChunkFileScanner: file a.chunks: read at byte 16: Input/output error`. A failed read inside a chunk's
///   ReadFrom(int) is what the chunk makes of it. Exceptions of chunks and the allocator pass. After an exception, the
///   walk stands where it stood, and Next tries the same record again.
/// - **Files that change**: Nothing about the file's end is remembered, so a walk goes on when the file has grown. If
///   the file is rewritten or truncated meanwhile, a record may have old bytes, new ones, or a mixture.
/// - **Threads**: One thread at a time for each scanner. Scanners are independent of each other and of appenders.
/// - **Log**: Nothing.
class DataChunkFileScanner {
public:
    /// Why Next returned false.
    enum class End {
        AllRead,    ///< The walk has given as many records as the header counts, or as GoTo allowed.
        BadRecord,  ///< No good record begins here: the bytes do not parse, or the record would end past the file.
        EndOfFile,  ///< The position is at or after the end of the file.
    };

    /// Opens the file, reads its header, and goes to record 0: GoTo(16, GetNumberOfChunks()). Accepts any version. If
    /// the file is shorter than 16 bytes, the missing bytes of its header count as zero.
    explicit DataChunkFileScanner(std::string filename);

    DataChunkFileScanner(const DataChunkFileScanner&) = delete;
    DataChunkFileScanner& operator=(const DataChunkFileScanner&) = delete;

    ~DataChunkFileScanner();

    /// Reads the next record.
    ///
    /// - true: GetChunk() is its chunk, GetPosition() its position. The record is good: it parses and lies within the
    ///   file.
    /// - false: GetEnd() says why. The walk stays at GetPosition(). Another call reads the file there again.
    ///
    /// A walk from the header ends where a reopening without maximum size does. If the chunk type accepts records
    /// without length, there is at most one record for each byte from the walk's first position on.
    ///
    /// Most records are parsed from memory. These come through ReadFrom(int):
    /// - The first 16 records, so that a small file costs no mapping.
    /// - Records of more than 256 KiB; after a jump, of more than 16 KiB.
    /// - All, if the process may not map 4 GiB of address space.
    bool Next();

    /// The chunk of the record that Next has just read. Valid until the next call that is not const. Throws
    /// std::bad_optional_access if there is none.
    const Pellin::DataChunk& GetChunk() const;

    /// After Next returned true: the byte position of that record. Otherwise: where the walk stands, from the start of
    /// the file.
    std::uint64_t GetPosition() const;

    /// The number of records given since the construction, or the last GoTo or FindNext.
    std::uint64_t GetNumberRead() const;

    /// Why Next has last returned false.
    End GetEnd() const;

    /// Continues at this byte position from the start of the file, and gives at most `records` records from there on.
    /// Reads nothing yet. The next record is read from the file again, even if it is the present one.
    void GoTo(std::uint64_t position, std::uint64_t records = UINT64_MAX);

    /// Searches the next good record and lifts the bound on the number of records. The search begins after the present
    /// record, or without one at GetPosition().
    ///
    /// - true: Next gives the record at GetPosition().
    /// - false: There is none up to the end of the file, where the walk now stands.
    ///
    /// Every byte is tried from memory, with at least 1 MiB of the file after it. If twice the largest record so far is
    /// more, it is that, up to 2 GiB. A longer record is not found, and none without length. A chunk type without
    /// checksums is found wherever bytes happen to parse, inside other records too.
    ///
    /// A byte costs what a chunk and its failing ReadFrom cost: about 10 ns on the reference platform. Bytes that claim
    /// a long record cost that length: 0.1 s for 1 GiB. The worst file claims the longest record again and again. If
    /// the file system knows where holes are, only the last bytes of a hole cost anything.
    ///
    /// If the process may not map 4 GiB of address space, each byte costs a seek and the chunk's own reads.
    bool FindNext();

    /// Returns the name given to the constructor.
    std::string GetFilename() const;

    /// Returns the header's word as it was when the scanner was constructed.
    ///@{
    std::uint64_t GetNumberOfChunks() const;
    std::uint64_t GetVersion() const;
    ///@}

private:
    class Walk;

    std::unique_ptr<Walk> walk_;
};

}  // namespace Corvane::File
