#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "Corvane/Pellin/DataChunk.h"
#include "tarn/cv/logging/Logger.h"

namespace Corvane::File {

// Read access to one chunk file: the header, and single records by their byte position.
//
// Record 0 is at position 16 (kHeaderSize in ChunkFileLayout.h); each further one at the position before plus the
// GetSizeOnFile() of the chunk fetched there; there are GetNumberOfChunks() of them. The reader keeps no index.
//
// Disk     The constructor opens the file (read-only, access time left alone) and reads the header; GetChunk seeks and
//          reads; the destructor closes. The file is never changed.
// Owns     Its descriptor. Chunks stay the caller's, the logger is the platform's.
// Errors   The constructor throws; GetChunk returns what the chunk's ReadFrom reports, and logs nothing. Exceptions of
//          chunks and the logger pass through.
// Threads  One thread at a time for each reader: GetChunk's seek and read are two calls on one descriptor. Readers are
//          independent of each other and of appenders.
// Records  Through LoggingManager::GetLogger("DataChunkFileReader").
class DataChunkFileReader {
public:
    // Neither version nor length is judged: any version is accepted, and what a file shorter than 16 bytes lacks of its
    // header is zero. Level 10: "<name> opened, contains <count> chunks on version <version>".
    // Throws std::runtime_error "DataChunkFileReader could not open file <name>", after logging it at level 50. The
    // text gives no reason; a frequent one is another user's file, which O_NOATIME refuses even if it is readable.
    explicit DataChunkFileReader(std::string filename);

    DataChunkFileReader(const DataChunkFileReader&) = delete;
    DataChunkFileReader& operator=(const DataChunkFileReader&) = delete;

    virtual ~DataChunkFileReader();

    // Lets the chunk read itself from the record at this byte position from the start of the file, and returns the
    // result of its ReadFrom: zero means no valid record. Nothing is checked here: at a position where no record begins
    // the chunk meets foreign bytes or the end of the file, and at one of 2^63 or more, which the system refuses to
    // seek to, it reads wherever the descriptor stands.
    // The second form passes the set on to the chunk, which gives it its meaning.
    std::uint64_t GetChunk(Pellin::DataChunk& chunk, std::uint64_t position);
    std::uint64_t GetChunk(Pellin::DataChunk& chunk, std::uint64_t position, const std::set<std::string>& names);

    // The name given to the constructor.
    std::string GetFilename() const;

    // The header as it was when the reader was constructed; a file rewritten since is not looked at again.
    std::uint64_t GetNumberOfChunks() const;
    std::uint64_t GetVersion() const;

private:
    int fd_;
    std::string filename_;
    std::uint64_t version_;
    std::uint64_t numberOfChunks_;
    tarn::cv::logging::Logger& logger_;
};

}  // namespace Corvane::File
