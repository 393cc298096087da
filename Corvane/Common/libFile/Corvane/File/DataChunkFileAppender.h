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

// The writer of a chunk file. It keeps the whole image of the file in memory, adds chunks to the image one at a time,
// and writes the image in one piece when it is destroyed.
//
// Disk     The constructor opens the file (creating it empty, mode 0664 before the umask) and changes no byte of it.
//          The destructor makes the one write and closes. Until then nothing that was appended is on disk; it is lost
//          if the process ends without running the destructor. There is no fsync, and the file is overwritten in
//          place: to replace a file atomically and durably, write a new name, sync it and rename it (docs/format.md).
//          One write moves at most 2,147,479,552 bytes (a limit of Linux): a longer image ends there, with the record
//          "Could not write ..." below. Keep files below that.
// Memory   The whole file: maxSize bytes, or the header and the chunks. Untouched bytes of a large image take none.
// Owns     Its descriptor, image and set of time points. Chunks stay the caller's. The logger is the platform's.
// Errors   The constructor throws std::runtime_error (texts at the constructor) and logs none of its failures. Append
//          returns false for a refused chunk and Flush returns nothing; both log at level 50. Exceptions of chunks,
//          time points, the logger and the allocator pass through.
// Threads  One thread at a time for each appender; appenders of different files are independent. Two appenders of one
//          file do not coordinate: the one destroyed later overwrites the other's image.
// Records  Through LoggingManager::GetLoggerPtr("DataChunkFileAppender"); null means that nothing is logged.
class DataChunkFileAppender {
public:
    // maxSize  The size of the file in bytes: an image of exactly that many bytes, zero where no chunk lies, with
    //          format version 2. Below 16 no chunk fits; below 8 not even the version word does, and it is cut off.
    //          0 means unbounded: the image grows with each chunk. A new file written that way carries version 0: a
    //          reader opens it, but it can't be reopened. If nothing is appended to it, nothing is written.
    // reopen   false: start a new image. An existing file is left as it is until the destructor lays the image over
    //          its start; it is never truncated, so bytes of a longer file stay behind the image.
    //          true: load the existing file and continue it. The chunks are read one after the other until the header's
    //          count is reached. The first that is not good (it does not parse, or it would end behind the image) ends
    //          this: those before it are kept, the rest becomes free space that the next chunks overwrite. Closed
    //          without an Append, a damaged file is written back as it was, header count included. A bounded image
    //          keeps its maxSize, and a shorter file is filled up with zeros. Should a chunk type take records without
    //          length, no more of them are read than the image has bytes.
    //
    // Records with reopen: level 20 "In file <name>: we discovered <count> chunks from version 2"; level 40 "Chunk <i>
    // in file <name> of <count> chunks is not good. We skip the remaining <count - 1 - i> chunks", i counted from 0.
    //
    // Throws std::runtime_error; with reopen, the file has then been neither created nor opened for writing:
    //   "DataChunkFileAppender: file <name> has content of only <length> bytes. 16is the minimum expected"
    //       reopen: shorter than a header. A file that is absent, a directory or can't be read counts as 0 bytes.
    //   "DataChunkFileAppender: content size <length> is greater than specified size <maxSize> when reading file
    //   <name>"
    //       reopen, bounded: the file is longer than maxSize.
    //   "DataChunkFileAppender: file <name> is stored with version <v> instead of version 2: we don't know how to read
    //   this file"
    //       reopen: among others, of a file that was written unbounded and new.
    //   "data_ is empty while chunkNumber is > 0"
    //       can't happen: a header is never empty.
    //   "DataChunkFileAppender could not open file <name>: <reason of the system>"
    //       The file is opened with O_NOATIME: "Operation not permitted" for another user's file, even a writable one.
    // Throws std::bad_alloc or std::length_error where the image does not fit into memory.
    DataChunkFileAppender(std::string filename, bool reopen, std::uint64_t maxSize);

    DataChunkFileAppender(const DataChunkFileAppender&) = delete;
    DataChunkFileAppender& operator=(const DataChunkFileAppender&) = delete;

    // Flushes and closes. An exception of the logger ends the process here.
    virtual ~DataChunkFileAppender();

    // Adds the chunk behind those of the image: calls its GetSizeOnFile, GetTimePoint and Write, touches no file.
    // true   the image holds the chunk.
    // false  refused, image and count as they were. The reason is logged at level 50:
    //   "Current file size <used> + chunkSize <size> > maxSize <maxSize>"
    //       bounded, and the chunk does not fit. One that fills the image to its last byte does.
    //   "Data size <image> is lower than currentSize_ <used> + chunkSize <size>: Cannot Append chunk"
    //       can't happen: a bounded image always has its full size.
    //   "TimePoint <time point> has already been appended"
    //       Asked after the size. In unbounded mode the image stays grown by the chunk's size in zero bytes.
    // Throws what chunk, time point, logger or allocator throw (std::length_error for an unbounded image that no memory
    // could hold); the appender is then as it was before the call.
    // Cost: the chunk's Write and one search in the set, which a chunk later than all others is spared.
    bool Append(const Pellin::DataChunk& chunk);

    // Writes the whole image with one write at the descriptor's position; an empty image is not written. Made for the
    // destructor: called before, it lets the destructor write the image a second time behind the first.
    // A short or failed write is not repeated; level 50: "Could not write <size>B. Wrote instead: <written or -1>".
    void Flush();

    // The name given to the constructor.
    std::string GetFilename() const;

    // The time points of all chunks in the image, complete at any time. Lives as long as the appender.
    const std::set<Time::TimePoint>& GetTimePoints() const;

private:
    void Reopen();
    std::uint64_t Load();
    void Walk();
    bool IsGoodRecord(Pellin::DataChunk& chunk) const;
    bool MakeRoom(std::uint64_t chunkSize);

    std::string filename_;
    std::uint64_t maxSize_;            // bytes; 0 = unbounded
    std::unique_ptr<FileImage> data_;  // the whole file; exactly maxSize_ bytes if bounded
    std::uint64_t currentSize_;        // bytes in use, header included: where the next chunk goes
    std::uint64_t chunkNumber_;        // chunks in use; the image's header may say more after a damaged tail
    int fd_;
    std::set<Time::TimePoint> timePoints_;
    std::string chunkNumberAttribute_;  // a name kept for callers to come; no attribute is read or written
    bool flushDisabled_;                // nothing sets it: the destructor always flushes
    tarn::cv::logging::Logger* logger_;
    std::uint64_t loadedSize_;  // bytes of the image that came from a reopened file
};

}  // namespace Corvane::File
