// Writes a chunk file of the reference platform: write_file FILE BYTES RECORD_SIZE [FIELDS]. Values are text.
#include <cstdint>
#include <iostream>
#include <string>

#include "Corvane/File/DataChunkFileAppender.h"

int main(int count, char** arguments)
{
    if (count < 4) {
        std::cerr << "usage: write_file FILE BYTES RECORD_SIZE [FIELDS]\n";
        return 2;
    }
    const std::uint64_t bytes = std::stoull(arguments[2]);
    const std::uint64_t recordSize = std::stoull(arguments[3]);
    const std::uint64_t fields = count > 4 ? std::stoull(arguments[4]) : 1;
    constexpr std::uint64_t kHead = 40;   // of a record
    constexpr std::uint64_t kEntry = 17;  // of a field whose name is one letter
    const std::uint64_t valueSize = (recordSize - kHead) / fields - kEntry;
    Corvane::File::DataChunkFileAppender file(arguments[1], false, bytes);
    for (std::int64_t time = 0;; ++time) {
        Corvane::Pellin::DataChunk chunk(Corvane::Time::TimePoint(1'800'000'000'000'000'000 + time * 1'000'000));
        for (std::uint64_t field = 0; field < fields; ++field) {
            const std::string text =
                std::to_string(time * 7919 + static_cast<std::int64_t>(field)) + " load of a machine, ";
            std::string value;
            while (value.size() < valueSize) {
                value += text;
            }
            chunk.Set(std::string(1, static_cast<char>('a' + field)), value.substr(0, valueSize));
        }
        if (!file.Append(chunk)) {
            return 0;
        }
    }
}
