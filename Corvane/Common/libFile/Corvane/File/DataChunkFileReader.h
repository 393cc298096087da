#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "Corvane/Pellin/DataChunk.h"
#include "tarn/cv/logging/Logger.h"

namespace Corvane::File {

/// Reads one chunk file: its header, and single records by their byte position.
///
/// Record 0 is at position 16 (kHeaderSize). Each further record is at the previous position plus the GetSizeOnFile()
/// of the chunk read there. There are GetNumberOfChunks() of them. The reader keeps no index.
///
/// - **Disk**: The constructor opens the file read-only, leaves its access time alone, and reads the header. GetChunk
///   seeks and reads. The destructor closes the file, which is never changed.
/// - **Owns**: Its descriptor. Chunks stay the caller's. The logger is the platform's.
/// - **Errors**: The constructor throws. GetChunk returns what the chunk's ReadFrom reports, and logs nothing.
///   Exceptions of chunks, the logger and the allocator pass.
/// - **Threads**: One thread at a time for each reader, because the seek and the read of GetChunk are two calls on one
///   descriptor. Readers are independent of each other and of appenders.
/// - **Log**: `LoggingManager::GetLogger("DataChunkFileReader")`.
class DataChunkFileReader {
public:
    /// Opens the file and reads its header. Accepts any version. If the file is shorter than 16 bytes, the missing
    /// bytes of its header count as zero. Logs at level 10:
    /// `<name> opened, contains <count> chunks on version <version>`.
    ///
    /// Throws std::runtime_error `DataChunkFileReader could not open file <name>`, after logging it at level 50. The
    /// text gives no reason. A frequent one: except for privileged processes, the system refuses O_NOATIME for another
    /// user's file, even a readable one.
    explicit DataChunkFileReader(std::string filename);

    DataChunkFileReader(const DataChunkFileReader&) = delete;
    DataChunkFileReader& operator=(const DataChunkFileReader&) = delete;

    virtual ~DataChunkFileReader();

    /// Lets the chunk read itself from the record at this byte position from the start of the file.
    ///
    /// Returns the result of the chunk's ReadFrom: zero means no valid record. Nothing is checked here. At a position
    /// where no record begins, the chunk reads unrelated bytes or the end of the file. The system refuses to seek to a
    /// position of 2^63 or more; the chunk then reads from wherever the descriptor stands.
    ///
    /// The second form hands the set on to the chunk, which gives it its meaning.
    ///@{
    std::uint64_t GetChunk(Pellin::DataChunk& chunk, std::uint64_t position);
    std::uint64_t GetChunk(Pellin::DataChunk& chunk, std::uint64_t position, const std::set<std::string>& names);
    ///@}

    /// Returns the name given to the constructor.
    std::string GetFilename() const;

    /// Returns the header's word as it was when the reader was constructed. A file rewritten since is not read again.
    ///@{
    std::uint64_t GetNumberOfChunks() const;
    std::uint64_t GetVersion() const;
    ///@}

private:
    int fd_;
    std::string filename_;
    std::uint64_t version_;
    std::uint64_t numberOfChunks_;
    tarn::cv::logging::Logger& logger_;
};

}  // namespace Corvane::File
