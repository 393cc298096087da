#pragma once

#include <string>

#include "Corvane/Pellin/DataChunk.h"

namespace support {

using Corvane::Pellin::DataChunk;

// The bytes of the chunk's record, on any platform.
inline std::string RecordOf(const DataChunk& chunk)
{
    std::string record(chunk.GetSizeOnFile(), '\0');
    chunk.Write(reinterpret_cast<unsigned char*>(record.data()));
    return record;
}

}  // namespace support
