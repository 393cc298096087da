#pragma once

#include <string>

/// @file
/// Names of extended attributes that storage programs keep on the files they handle: a shared vocabulary for callers
/// of ExtendedAttributes. The library neither reads nor writes any of them.
///
/// Each source that includes this header has copies of its own (internal linkage), made when its program or library is
/// loaded.
namespace Corvane::File {

// NOLINTBEGIN(cert-err58-cpp): making these strings fails only if no memory is left at load time.
const std::string XattrFineTimecode = "user.__fine__timecode";
const std::string XattrFineDuration = "user.__fine__duration";
const std::string XattrFineTrackId = "user.__fine__trackId";
const std::string XattrFineDataSize = "user.__fine__dataSize";
const std::string XattrFineChunkNumber = "user.__fine__chunkNumber";
const std::string XattrFineEnableBlocks = "user.__fine__enableBlocks";
/// Kept on purpose: after "user." the others have two underscores, this one has none.
const std::string XattrFinePrefix = "user.fine__";
const std::string XattrEmptyFile = "user.__emptyFile";
const std::string XattrTrackSize = "user.__trackSize";
const std::string XattrFileSize = "user.__fileSize";
// NOLINTEND(cert-err58-cpp)

}  // namespace Corvane::File
