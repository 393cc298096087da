// For crashes.py, which cuts the power of the disk below: writes a chunk file, or continues one.
// usage: chunk_writer write FILE GENERATION | chunk_writer reopen FILE
#include <iostream>
#include <string>

#include "Corvane/File/DataChunkFileAppender.h"

using Corvane::File::DataChunkFileAppender;
using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;

namespace {

constexpr std::uint64_t kSize = 4'000'000;  // bytes of the file

// Chunks of different bytes and sizes in each generation, until the file is almost full.
void Write(const std::string& name, std::int64_t generation)
{
    DataChunkFileAppender file(name, false, kSize);
    std::uint64_t used = 0;
    for (std::int64_t i = 0; used < kSize - 100'000; ++i) {
        DataChunk chunk(TimePoint(generation * 1'000'000 + i));
        chunk.Set("p", std::string(static_cast<std::size_t>(10'000 + generation % 100), static_cast<char>(i % 251)));
        file.Append(chunk);
        used += chunk.GetSizeOnFile();
    }
}

// Appends to it, and prints how many chunks there were.
void Reopen(const std::string& name)
{
    DataChunkFileAppender file(name, true, kSize);
    std::cout << file.GetTimePoints().size() << '\n';
    if (!file.Append(DataChunk(TimePoint(-1)))) {
        throw std::runtime_error("cannot append to " + name);
    }
}

}  // namespace

int main(int count, char** arguments)
{
    try {
        if (count == 4) {
            Write(arguments[2], std::stoll(arguments[3]));
        } else if (count == 3) {
            Reopen(arguments[2]);
        } else {
            throw std::runtime_error("usage: chunk_writer write FILE GENERATION | chunk_writer reopen FILE");
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
