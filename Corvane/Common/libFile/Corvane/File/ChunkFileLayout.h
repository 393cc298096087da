#pragma once

#include <cstdint>

/// @file
/// The layout of a chunk file, shared by writer, reader and callers that walk the records (docs/format.md).
///
/// | Byte | Content |
/// |---|---|
/// | 0 | version, unsigned 64-bit, little-endian |
/// | 8 | number of chunks, unsigned 64-bit, little-endian |
/// | 16 | records, back to back, each exactly as long as its chunk's GetSizeOnFile() says |
/// | after the last record | fill without meaning, because the number of chunks alone says where the records end |
namespace Corvane::File {

constexpr std::uint64_t kVersionPosition = 0;
constexpr std::uint64_t kChunkNumberPosition = 8;
constexpr std::uint64_t kHeaderSize = 16;    ///< bytes; also the position of record 0
constexpr std::uint64_t kFormatVersion = 2;  ///< the only version that can be reopened

static_assert(kVersionPosition + sizeof(std::uint64_t) == kChunkNumberPosition);
static_assert(kChunkNumberPosition + sizeof(std::uint64_t) == kHeaderSize);
#ifdef __BYTE_ORDER__
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "header words are copied as they lie in memory");
#endif

}  // namespace Corvane::File
