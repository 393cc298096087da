// A user's program: writes a chunk file, continues it, reads it back and tags it. usage: outside FILE
// Exit code: 0; 77 if the file system has no attributes; 1 with a message.
#include <Corvane/File/ChunkFileLayout.h>
#include <Corvane/File/DataChunkFileAppender.h>
#include <Corvane/File/DataChunkFileReader.h>
#include <Corvane/File/ExtendedAttributes.h>
#include <Corvane/File/XattrNames.h>

#include <cerrno>
#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using Corvane::File::ExtendedAttributes;
using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;

constexpr std::uint64_t kMaxSize = 4096;
constexpr int kSkipped = 77;

void Demand(bool held, const std::string& what)
{
    if (!held) {
        throw std::runtime_error(what);
    }
}

DataChunk Chunk(std::int64_t time)
{
    DataChunk chunk{TimePoint(time)};
    chunk.Set("time", std::to_string(time));
    return chunk;
}

void Append(const std::string& name, bool reopen, std::int64_t time)
{
    Corvane::File::DataChunkFileAppender file(name, reopen, kMaxSize);
    Demand(file.Append(Chunk(time)), "a chunk was refused");
}

void ReadBack(const std::string& name)
{
    Corvane::File::DataChunkFileReader file(name);
    Demand(file.GetNumberOfChunks() == 2, "there are not two chunks");
    std::uint64_t position = Corvane::File::kHeaderSize;
    for (const std::string time : {"1", "2"}) {
        DataChunk chunk;
        Demand(file.GetChunk(chunk, position) != 0 && *chunk.Get("time") == time, "chunk " + time + " is not good");
        position += chunk.GetSizeOnFile();
    }
}

bool Tag(const std::string& path)
{
    bool success = false;
    ExtendedAttributes::Write(path, Corvane::File::XattrFileSize, std::to_string(kMaxSize), success);
    if (!success && errno == ENOTSUP) {
        return false;
    }
    Demand(ExtendedAttributes::Read(path, Corvane::File::XattrFileSize) == std::to_string(kMaxSize), "no such tag");
    return true;
}

}  // namespace

int main(int /*count*/, char** arguments)
{
    try {
        const std::string name = arguments[1];
        Append(name, false, 1);
        Append(name, true, 2);
        ReadBack(name);
        return Tag(name) ? 0 : kSkipped;
    } catch (const std::exception& error) {
        std::cerr << "outside: " << error.what() << '\n';
        return 1;
    }
}
