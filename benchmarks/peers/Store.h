#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// What is stored: chunks with the times 0, 1, ... and the same payload each.
struct Data {
    std::uint64_t recordSize;  // of ours; a peer stores 8 bytes of time and the payload in its own way
    std::uint64_t count;
    std::string payload;
};

// One way to store chunks by time, without any sync.
struct Store {
    std::string name;
    // Stores the chunks [first, last) at this path, in a new store if first is 0, and closes it. Returns how many were
    // accepted.
    std::function<std::uint64_t(const std::string& path, const Data&, std::uint64_t first, std::uint64_t last)> write;
    // Opens the store, fetches the chunks of all times in order, or of the given times, and returns their SumOf.
    std::function<std::uint64_t(const std::string& path, const Data&)> readAll;
    std::function<std::uint64_t(const std::string& path, const Data&, const std::vector<std::uint64_t>&)> readAt;
};

// What was read, in one number that must be the same for all contenders.
inline std::uint64_t SumOf(std::uint64_t time, std::uint64_t payloadSize)
{
    return time * 31 + payloadSize;
}

// Throws with the peer's name.
void Demand(bool good, const char* peer);

Store Ours();
Store OurScanner();  // reads what the appender has written
std::vector<Store> StdioStores();
std::vector<Store> LmdbStores();
Store LevelDbStore();
Store RocksDbStore();
Store SqliteStore();
Store Hdf5Store();

}  // namespace bench
