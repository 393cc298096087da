// Measures this machine into a chunk file, reads it back, damages a copy and recovers it, and tags the file.
// usage: measure [seconds [file]]
#include <Corvane/File/ChunkFileLayout.h>
#include <Corvane/File/DataChunkFileAppender.h>
#include <Corvane/File/DataChunkFileReader.h>
#include <Corvane/File/ExtendedAttributes.h>
#include <Corvane/File/XattrNames.h>
#include <tarn/cv/logging/LoggingManager.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <thread>

namespace {

using namespace Corvane::File;
using Corvane::Pellin::DataChunk;

constexpr std::uint64_t kMaxSize = 4'000'000;  // bytes

DataChunk Measure()
{
    DataChunk chunk(Corvane::Time::TimePoint::Now());
    for (const char* const name : {"stat", "loadavg", "meminfo", "diskstats", "net/dev"}) {
        std::ifstream file(std::string("/proc/") + name);
        chunk.Set(name, {std::istreambuf_iterator<char>(file), {}});
    }
    return chunk;
}

// Measures for that long, and returns the last measurement.
DataChunk Fill(DataChunkFileAppender& file, std::chrono::duration<double> duration)
{
    DataChunk chunk;
    const auto start = std::chrono::steady_clock::now();
    for (auto next = start; next - start < duration; next += std::chrono::milliseconds(10)) {
        std::this_thread::sleep_until(next);
        chunk = Measure();
        file.Append(chunk);
        if (const std::size_t count = file.GetTimePoints().size(); count % 20 == 0) {
            std::cout << ' ' << count;
        }
    }
    std::cout << ": " << file.GetTimePoints().size() << " measurements\n";
    return chunk;
}

void PrintRow(std::uint64_t number, std::uint64_t position, const DataChunk& chunk)
{
    std::cout << "  " << std::setw(6) << number << std::setw(10) << position << std::setw(8) << chunk.GetSizeOnFile()
              << std::setw(8) << chunk.Fields().size() << "  " << chunk.GetTimePoint() << "  "
              << chunk.Get("loadavg")->substr(0, 14) << '\n';
}

// Walks the file, prints its first and last records, and returns the position behind the last one.
std::uint64_t Print(const std::string& name, const std::set<std::string>& fields)
{
    DataChunkFileReader file(name);
    const std::uint64_t count = file.GetNumberOfChunks();
    std::cout << "  version " << file.GetVersion() << ", " << count << " chunks\n"
              << "  number  position    size  fields  time                            load\n";
    std::uint64_t position = kHeaderSize;
    for (std::uint64_t i = 0; i < count; ++i) {
        DataChunk chunk;
        if ((fields.empty() ? file.GetChunk(chunk, position) : file.GetChunk(chunk, position, fields)) == 0) {
            std::cout << "  chunk " << i << " at position " << position << " is not good\n";
            break;
        }
        if (i < 2 || i + 2 >= count) {
            PrintRow(i, position, chunk);
        } else if (i == 2) {
            std::cout << "     ...\n";
        }
        position += chunk.GetSizeOnFile();
    }
    const std::uint64_t size = std::filesystem::file_size(name);
    std::cout << "  " << position << " of " << size << " bytes in use: " << position * 100 / size << " % full\n";
    return position;
}

void DamageAndRecover(const std::string& name, std::uint64_t end)
{
    const std::string copy = name + ".damaged";
    std::filesystem::copy_file(name, copy, std::filesystem::copy_options::overwrite_existing);
    std::fstream(copy).seekp(static_cast<std::streamoff>(end / 2)).write("damaged", 7);
    {
        DataChunkFileAppender file(copy, true, kMaxSize);
        std::cout << "  kept " << file.GetTimePoints().size() << " chunks; appending one\n";
        file.Append(Measure());
    }
    Print(copy, {});
}

void Tag(const std::string& path, std::uint64_t end)
{
    try {
        ExtendedAttributes::Write(path, XattrTrackSize, std::to_string(end));
        ExtendedAttributes::Write(path, XattrFileSize, std::to_string(std::filesystem::file_size(path)));
        for (const std::string& attribute : ExtendedAttributes::List(path)) {
            std::cout << "  " << attribute << " = " << ExtendedAttributes::Read(path, attribute) << '\n';
        }
        ExtendedAttributes::Read(path, XattrEmptyFile);
    } catch (const std::runtime_error& error) {
        std::cout << "  thrown: " << error.what() << '\n';
    }
}

void Run(double seconds, const std::string& name)
{
    for (const char* const logger : {"DataChunkFileAppender", "DataChunkFileReader", "ExtendedAttributes"}) {
        tarn::cv::logging::LoggingManager::SetLevel(logger, 10);
    }
    std::cout << "Measuring this machine for " << seconds << " s into " << name << "\n ";
    {
        DataChunkFileAppender file(name, false, kMaxSize);
        DataChunk chunk = Fill(file, std::chrono::duration<double>(seconds));
        std::cout << "A chunk of the same time, and one that is too long, are refused\n";
        file.Append(chunk);
        chunk.Set("padding", std::string(kMaxSize, 'x'));
        file.Append(chunk);
    }
    std::cout << "Reading it back whole\n";
    const std::uint64_t end = Print(name, {});
    std::cout << "Reading only the field \"loadavg\" of each chunk\n";
    Print(name, {"loadavg"});
    std::cout << "Damaging a copy in the middle, and reopening it\n";
    DamageAndRecover(name, end);
    std::cout << "Tagging the file with extended attributes, and asking for one that is not there\n";
    Tag(name, end);
}

}  // namespace

int main(int count, char** arguments)
{
    std::cout << std::unitbuf;  // in step with the log records on stderr
    try {
        Run(count > 1 ? std::stod(arguments[1]) : 2.0, count > 2 ? arguments[2] : "measure.chunks");
    } catch (const std::invalid_argument&) {
        std::cerr << "usage: measure [seconds [file]]\n";
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "measure: " << error.what() << '\n';
        return 1;
    }
}
