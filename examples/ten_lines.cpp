#include <Corvane/File/ChunkFileLayout.h>
#include <Corvane/File/DataChunkFileAppender.h>
#include <Corvane/File/DataChunkFileReader.h>

#include <iostream>

using Corvane::Pellin::DataChunk;

int main(int count, char** arguments)
{
    const std::string name = count > 1 ? arguments[1] : "ten_lines.chunks";
    {
        Corvane::File::DataChunkFileAppender file(name, /* reopen = */ false, /* maxSize = */ 4096);
        DataChunk chunk(Corvane::Time::TimePoint::Now());
        chunk.Set("temperature", "21.5");
        if (!file.Append(chunk)) {
            return 1;  // it does not fit, or its time point is already there: the log says which
        }
    }  // here the whole file is written
    Corvane::File::DataChunkFileReader file(name);
    DataChunk chunk;
    std::uint64_t position = Corvane::File::kHeaderSize;
    for (std::uint64_t i = 0; i < file.GetNumberOfChunks() && file.GetChunk(chunk, position) != 0; ++i) {
        std::cout << chunk.GetTimePoint() << ' ' << *chunk.Get("temperature") << '\n';
        position += chunk.GetSizeOnFile();
    }
}
