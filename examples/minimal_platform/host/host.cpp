// Writes, reads, reopens and tags a chunk file with the host's own platform, and prints what happens.
#include <Corvane/File/ChunkFileLayout.h>
#include <Corvane/File/DataChunkFileAppender.h>
#include <Corvane/File/DataChunkFileReader.h>
#include <Corvane/File/DataChunkFileScanner.h>
#include <Corvane/File/ExtendedAttributes.h>
#include <tarn/cv/logging/LoggingManager.h>

#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

using Corvane::File::DataChunkFileAppender;
using Corvane::File::DataChunkFileReader;
using Corvane::File::DataChunkFileScanner;
using Corvane::File::ExtendedAttributes;
using Corvane::Pellin::DataChunk;
using tarn::cv::logging::LoggingManager;

namespace {

void Write(const std::string& file)
{
    std::cout << "write\n";
    DataChunkFileAppender appender(file, false, 200);
    for (const long ticks : {1, 2, 1}) {
        std::cout << appender.Append(DataChunk(ticks, "chunk " + std::to_string(ticks))) << '\n';
    }
    std::cout << appender.Append(DataChunk(3, std::string(200, 'x'))) << '\n';
}

void Read(const std::string& file)
{
    std::cout << "read\n";
    DataChunkFileReader reader(file);
    std::uint64_t position = Corvane::File::kHeaderSize;
    for (std::uint64_t i = 0; i < reader.GetNumberOfChunks(); ++i) {
        DataChunk whole;
        DataChunk head;
        if (reader.GetChunk(whole, position) == 0 || reader.GetChunk(head, position, {}) == 0) {
            throw std::runtime_error("no record");
        }
        std::cout << whole.GetTimePoint() << ": " << whole.Text() << head.Text() << '\n';
        position += whole.GetSizeOnFile();
    }
}

void Scan(const std::string& file)
{
    std::cout << "scan\n";
    DataChunkFileScanner scanner(file);
    while (scanner.Next() || (scanner.GetEnd() == DataChunkFileScanner::End::BadRecord && scanner.FindNext())) {
        if (scanner.GetNumberRead() != 0) {
            std::cout << scanner.GetPosition() << ": " << scanner.GetChunk().Text() << '\n';
        }
    }
}

void Damage(const std::string& file)
{
    std::fstream(file, std::ios::in | std::ios::out).seekp(16 + 31).write("\0", 1);
}

void Reopen(const std::string& file, long ticks)
{
    std::cout << "reopen\n";
    DataChunkFileAppender appender(file, true, 200);
    std::cout << appender.GetTimePoints().size() << ' ' << appender.Append(DataChunk(ticks, "later")) << '\n';
}

void Tag(const std::string& file)
{
    std::cout << "tag\n";
    bool success = false;
    ExtendedAttributes::Write(file, "user.host", "tagged", success);
    std::cout << (success ? ExtendedAttributes::Read(file, "user.host") : "tagged") << '\n';  // or not supported here
    try {
        ExtendedAttributes::Remove(file, "user.absent");
    } catch (const std::runtime_error& error) {
        std::cout << "thrown: " << error.what() << '\n';
    }
}

void RunAll(const std::string& file)
{
    Write(file);
    LoggingManager::SetLevel(10);
    Read(file);
    Damage(file);
    Scan(file);
    Reopen(file, 4);
    LoggingManager::SetLevel(40);
    Tag(file);
    LoggingManager::SwitchOff();
    Reopen(file, 5);
    Read(file);
    Scan(file);
}

}  // namespace

int main(int count, char** arguments)
{
    try {
        RunAll(count > 1 ? arguments[1] : "host.chunks");
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
