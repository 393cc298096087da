#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "Corvane/File/DataChunkFileAppender.h"

namespace Corvane::File {

/// Writes a chunk file and returns when it is on the disk under its name. Until the rename, the name leads to the old
/// file, or to none.
///
/// 1. Makes a fresh file in the folder of `filename`, named `.corvane.` and 16 hexadecimal digits, mode 0600.
/// 2. Constructs an appender on it and calls `fill`, which appends the chunks. It must not call Flush. It may stop
///    everything by throwing.
/// 3. Destroys the appender, which writes the file, and compares the file's length with the image's.
/// 4. Calls `check`, if there is one, with the fresh file's name. It may read the file, and refuse it by throwing.
/// 5. Sets mode and owner, and syncs the file. Renames it to `filename`, and syncs the folder.
///
/// `maxSize` is the size of the file in bytes: bounded if it is above 0, as for the appender. 0 makes the file exactly
/// as long as its header and chunks. Unlike an appender's new unbounded file it has version 2 and can be reopened.
///
/// - **Disk**: `filename` may be a symbolic link, which is followed and stays; without a folder it is in the current
///   one. A new file gets mode 0664 less the umask. A replaced file passes on its mode, without set-id bits, and its
///   owner and group where the system allows it. If the group changes, or if the old file has an access control list,
///   group and others get only the rights that both had. Attributes, access control lists and other hard links stay
///   with the old file.
/// - **Errors**: Throws std::runtime_error `WriteChunkFileDurably: file <name>: <step>: <reason>`, for example
///   `WriteChunkFileDurably: file a.chunks: write: short write: 4096 of 1000000 bytes`. Exceptions of `fill`, `check`,
///   the appender and the allocator pass; in the appender's destructor they end the process. If the function throws,
///   the fresh file is removed and the old one is whole, with one exception. After the step `sync the folder; the new
///   file stands`, a power cut may still undo the rename.
/// - **Kill**: A killed process may leave the fresh file. Nobody else uses such a name; remove it when no writer runs.
/// - **Threads**: Any number of calls at once. If two write the same name, the later rename wins, whole.
/// - **Log**: Nothing of its own. The appender logs as always.
void WriteChunkFileDurably(const std::string& filename, std::uint64_t maxSize,
                           const std::function<void(DataChunkFileAppender&)>& fill,
                           const std::function<void(const std::string& freshName)>& check = nullptr);

}  // namespace Corvane::File
