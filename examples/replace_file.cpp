// Replaces a chunk file. Its name always leads to a whole file, the old or the new one, even after a power cut.
#include <Corvane/File/WriteChunkFileDurably.h>

#include <iostream>
#include <stdexcept>

int main(int count, char** arguments)
{
    try {
        if (count < 2) {
            throw std::runtime_error("usage: replace_file FILE [TEXT...]");
        }
        const auto fill = [&](Corvane::File::DataChunkFileAppender& file) {
            for (int i = 2; i < count; ++i) {
                Corvane::Pellin::DataChunk chunk(Corvane::Time::TimePoint::Now());
                chunk.Set("text", arguments[i]);
                if (!file.Append(chunk)) {
                    throw std::runtime_error("a chunk is refused: see the log");
                }
            }
        };
        Corvane::File::WriteChunkFileDurably(arguments[1], /* maxSize = */ 65536, fill);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "replace_file: " << error.what() << '\n';
        return 1;
    }
}
