#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "Corvane/Pellin/DataChunk.h"
#include "Corvane/Time/TimePoint.h"
#include "tarn/cv/logging/Logger.h"

namespace Corvane::File {

class FileImage;
class TimePoints;

/// Writes a chunk file.
///
/// The appender keeps the whole file as an image in memory and adds chunks to it one at a time. Its destructor writes
/// the image with one system call.
///
/// - **Disk**: The constructor opens the file, creates it if it is absent (empty, mode 0664 before the umask), and
///   changes no byte. The destructor overwrites the file in place with the image, without fsync, and closes it. A
///   process that ends without running the destructor loses what it appended. To replace a file atomically and durably,
///   and to learn of a full disk, use WriteChunkFileDurably().
/// - **Limit**: One `write` moves at most 2,147,479,552 bytes, a limit of Linux. A longer image ends there, and the log
///   entry "Could not write ..." of Flush says so.
/// - **Memory**: A bounded image has `maxSize` bytes, an unbounded one the header and the chunks. Below 2 MiB, pages
///   that nobody has touched take no memory. From 2 MiB on the image lies on huge pages: it takes its bytes in use or
///   loaded, and at most 2 MiB more. Each chunk adds a copy of its time point; after the first GetTimePoints, a node of the set.
/// - **Owns**: Its descriptor, its image and its time points. Chunks stay the caller's. The logger is the
///   platform's.
/// - **Errors**: The constructor throws, and logs none of its failures. Append returns false for a refused chunk, Flush
///   returns nothing; both log at level 50. Exceptions of chunks, time points, the logger and the allocator pass.
/// - **Threads**: One thread at a time for each appender. Appenders of different files are independent. Two appenders
///   of one file do not coordinate: the one destroyed later overwrites the image of the other.
/// - **Log**: `LoggingManager::GetLoggerPtr("DataChunkFileAppender")`, looked up once, by the constructor. If that is
///   null, nothing is logged.
class DataChunkFileAppender {
public:
    /// Starts a new image, or loads the file to continue it.
    ///
    /// `maxSize` is the size of the file in bytes:
    /// - Above 0, the image is bounded: exactly this long, zero after the last chunk, with format version 2. With less
    ///   than 16 bytes no chunk fits; with less than 8 the version word is truncated.
    /// - 0: the image is unbounded and grows with each chunk. A new file then gets version 0: a reader opens it, but it
    ///   cannot be reopened. Without `reopen`, nothing is written if nothing is appended.
    ///
    /// `reopen` says what happens to an existing file:
    /// - false: the destructor overwrites its start with the new image. Nothing truncates the file, so the bytes of a
    ///   longer one stay after the image.
    /// - true: the appender loads it and reads its records one after the other, until it reaches the header's count. It
    ///   stops at the first bad record: one that does not parse, or would end past the image. The records before it
    ///   stay; the rest becomes fill, which the next Append overwrites. Without an Append, a damaged file is written
    ///   back unchanged, header count included. A bounded image pads a shorter file with zeros. If the chunk type
    ///   accepts records without length, the appender reads at most one for each byte of the image.
    ///
    /// The records are parsed from memory, without I/O. The one exception: if the process may not map 4 GiB of address
    /// space (`RLIMIT_AS`, or `mlockall` with a limit), `ReadFrom(int)` first reads each record from the file. A record
    /// that needs the zeros after a short file to be complete is then bad.
    ///
    /// Log entries with `reopen`, `<i>` counted from 0:
    /// - level 20 `In file <name>: we discovered <count> chunks from version 2`
    /// - level 40 `Chunk <i> in file <name> of <count> chunks is not good. We skip the remaining <count - 1 - i>
    ///   chunks`
    ///
    /// Throws std::runtime_error, checked in this order. If reopening fails, the file is neither created nor opened for
    /// writing:
    /// - `DataChunkFileAppender: file <name> has content of only <length> bytes. 16is the minimum expected`: reopening
    ///   a file shorter than a header. A file that is absent, a folder or unreadable counts as 0 bytes.
    /// - `DataChunkFileAppender: content size <length> is greater than specified size <maxSize> when reading file
    ///   <name>`: reopening a file that is longer than a bounded image.
    /// - `DataChunkFileAppender: file <name> is stored with version <v> instead of version 2: we don't know how to read
    ///   this file`: reopening, for example, a file that was written new and unbounded.
    /// - `data_ is empty while chunkNumber is > 0`: cannot happen, because a header is never empty.
    /// - `DataChunkFileAppender could not open file <name>: <reason of the system>`: the file is opened with O_NOATIME.
    ///   Except for privileged processes, the system refuses this for another user's file ("Operation not permitted"),
    ///   even a writable one.
    ///
    /// Throws std::bad_alloc or std::length_error if the image does not fit into memory; std::bad_alloc also if the
    /// process may not map 4 GiB and the file cannot seek.
    DataChunkFileAppender(std::string filename, bool reopen, std::uint64_t maxSize);

    DataChunkFileAppender(const DataChunkFileAppender&) = delete;
    DataChunkFileAppender& operator=(const DataChunkFileAppender&) = delete;

    /// Flushes and closes. An exception here ends the process: one of the logger, or a failed allocation for the text
    /// of a log entry.
    virtual ~DataChunkFileAppender();

    /// Adds a chunk at the end of the image. Calls its GetSizeOnFile, GetTimePoint and Write, and touches no file.
    ///
    /// - true: the image holds the chunk.
    /// - false: the chunk is refused; the image's chunks and their number are unchanged. The log entry of level 50
    ///   gives the reason:
    ///   - `Current file size <used> + chunkSize <size> > maxSize <maxSize>`: it does not fit into a bounded image. A
    ///     chunk may fill the image to its last byte.
    ///   - `Data size <image> is lower than currentSize_ <used> + chunkSize <size>: Cannot Append chunk`: cannot
    ///     happen, because a bounded image always has its full size.
    ///   - `TimePoint <time point> has already been appended`: the image holds an equal one. Checked after the size. An
    ///     unbounded image keeps the room made for the chunk, as zeros.
    ///
    /// Throws what the chunk, the time point, the logger or the allocator throws; std::length_error if no memory could
    /// hold the unbounded image. The appender is then unchanged.
    ///
    /// Cost: the chunk's Write, and one comparison and copy of its time point if it is later than all others. A late
    /// chunk costs two searches, and copies up to 65 time points. After the first GetTimePoints, a late chunk costs one
    /// search, and each chunk a node of the set.
    [[nodiscard]] bool Append(const Pellin::DataChunk& chunk);

    /// Writes the whole image with one `write` at the descriptor's position. An empty image is not written.
    ///
    /// The destructor calls it. If a caller does so earlier, the destructor writes the image a second time, after the
    /// first. A short or failed write is not repeated; it is logged at level 50 as
    /// `Could not write <size>B. Wrote instead: <written, or -1>`.
    void Flush();

    /// Returns the name given to the constructor.
    std::string GetFilename() const;

    /// Returns the time points of all chunks in the image. It is always the same set; the reference is valid as long as
    /// the appender, and every Append keeps the set complete. Of equal time points in a reopened file, the set holds
    /// the first.
    ///
    /// The first call makes the set: it copies every time point, and allocates a node for each. It is therefore a
    /// change, although the function is const: one thread at a time. It throws what the allocator, the copy and
    /// operator< of the time point throw; the appender is then unchanged, and a later call goes on. Call it only if you
    /// need the set.
    const std::set<Time::TimePoint>& GetTimePoints() const;

private:
    friend struct ImageSizes;  // lets WriteChunkFileDurably compare the file with the image

    void Reopen();
    std::uint64_t Load(int fd);
    void Walk(int fd);
    bool IsGoodRecord(Pellin::DataChunk& chunk) const;
    bool IsWholeInFile(int fd) const;
    bool MakeRoom(std::uint64_t chunkSize);

    std::string filename_;
    std::uint64_t maxSize_;            // bytes; 0 = unbounded
    std::unique_ptr<FileImage> data_;  // the whole file; exactly maxSize_ bytes if bounded
    std::uint64_t currentSize_;        // bytes in use, header included: where the next chunk goes
    std::uint64_t chunkNumber_;        // chunks in use; after damage the image's header may say more
    int fd_;
    std::unique_ptr<TimePoints> timePoints_;  // one for each distinct time point of the chunks
    std::string chunkNumberAttribute_;        // kept on purpose, for compatibility: no attribute is read or written
    bool flushDisabled_;                      // kept on purpose, for compatibility: nothing sets it
    tarn::cv::logging::Logger* logger_;
    std::uint64_t loadedSize_;  // bytes of the image that came from a reopened file
};

}  // namespace Corvane::File
