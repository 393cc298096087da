#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/ChunkFileTest.h"
#include "support/Chunks.h"
#include "support/Files.h"

// Every damage of a kind: the matrix that recovery is tested with.
namespace support {

using Files = std::vector<std::string>;  // their bytes

inline Files Truncations(const std::string& file)
{
    Files files;
    for (std::size_t length = 0; length <= file.size(); ++length) {
        files.push_back(file.substr(0, length));
    }
    return files;
}

inline Files FlippedBits(const std::string& file)
{
    Files files(8 * file.size(), file);
    for (std::size_t bit = 0; bit < files.size(); ++bit) {
        files[bit][bit / 8] = static_cast<char>(file[bit / 8] ^ (1 << bit % 8));
    }
    return files;
}

// Each byte set to zero and to all ones.
inline Files SetBytes(const std::string& file)
{
    Files files(2 * file.size(), file);
    for (std::size_t i = 0; i < files.size(); ++i) {
        files[i][i / 2] = i % 2 == 0 ? '\0' : '\xff';
    }
    return files;
}

// Every count up to `most` and two absurd ones, without and with zeros after the records.
inline Files WrongCounts(const std::string& file, std::uint64_t most)
{
    std::vector<std::uint64_t> counts = {std::uint64_t{1} << 63U, UINT64_MAX};
    for (std::uint64_t count = 0; count <= most; ++count) {
        counts.push_back(count);
    }
    Files files;
    for (const std::uint64_t count : counts) {
        std::string wrong = file;
        wrong.replace(8, 8, Word(count));
        files.push_back(wrong);
        files.push_back(wrong + std::string(100, '\0'));
    }
    return files;
}

// A torn write: only the first bytes of `now` overwrote `before`. One file for each number of bytes.
inline Files TornOverwrites(const std::string& now, const std::string& before)
{
    Files files;
    for (std::size_t k = 0; k <= now.size(); ++k) {
        files.push_back(now.substr(0, k) + (k < before.size() ? before.substr(k) : ""));
    }
    return files;
}

// A test with a sound file of five chunks, which it damages.
class DamagedFileTest : public ChunkFileTest {
protected:
    DamagedFileTest()
    {
        for (const std::uint64_t size : {60U, 40U, 90U, 57U, 75U}) {
            chunks_.push_back(ChunkOfSize(static_cast<std::int64_t>(chunks_.size()), size));
        }
        sound_ = FileOf(chunks_);
    }

    // Writes a new file each time, because ext4 flushes a truncated and rewritten file to the disk.
    void Put(const std::string& file) const
    {
        std::filesystem::remove(path_);
        WriteFile(path_, file);
    }

    std::vector<DataChunk> chunks_;
    std::string sound_;  // their file
};

}  // namespace support
