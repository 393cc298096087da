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
#include <iostream>
#include <iterator>
#include <thread>

namespace {

using namespace Corvane::File;
using Corvane::Pellin::DataChunk;
using tarn::cv::logging::LoggingManager;

constexpr std::uint64_t kMaxSize = 4'000'000;  // bytes

void Require(bool done, const std::string& step)
{
    if (!done) {
        throw std::runtime_error("cannot " + step);
    }
}

DataChunk Measure()
{
    DataChunk chunk(Corvane::Time::TimePoint::Now());
    for (const char* const name : {"stat", "loadavg", "meminfo", "diskstats", "net/dev"}) {
        std::ifstream file(std::string("/proc/") + name);
        chunk.Set(name, {std::istreambuf_iterator<char>(file), {}});
    }
    return chunk;
}

// Measures every 10 ms for this long, or until the file is full, and returns the last measurement.
DataChunk Fill(DataChunkFileAppender& file, std::chrono::duration<double> duration)
{
    DataChunk chunk;
    const auto start = std::chrono::steady_clock::now();
    auto next = start;
    do {
        std::this_thread::sleep_until(next);
        chunk = Measure();
        next += std::chrono::milliseconds(10);
    } while (file.Append(chunk) && next - start < duration);
    return chunk;
}

void MeasureInto(const std::string& name, double seconds)
{
    std::cout << "Measuring this machine for " << seconds << " s into " << name << std::flush;
    DataChunkFileAppender file(name, false, kMaxSize);
    DataChunk chunk = Fill(file, std::chrono::duration<double>(seconds));
    std::cout << ": " << file.GetTimePoints().size() << " measurements\n"
              << "Appending the last chunk again, and one that is too long\n";
    Require(!file.Append(chunk), "refuse a duplicate");
    chunk.Set("padding", std::string(kMaxSize, 'x'));
    Require(!file.Append(chunk), "refuse a chunk that is too long");
}

// Reads all records: whole, or only these fields if any are named. Returns the position after the last one.
std::uint64_t Read(DataChunkFileReader& file, const std::set<std::string>& fields)
{
    const std::uint64_t count = file.GetNumberOfChunks();
    DataChunk chunk;
    std::uint64_t position = kHeaderSize;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t size =
            fields.empty() ? file.GetChunk(chunk, position) : file.GetChunk(chunk, position, fields);
        Require(size != 0, "read the record at position " + std::to_string(position));
        position += chunk.GetSizeOnFile();
    }
    std::cout << "  " << count << " chunks in " << position << " of " << kMaxSize
              << " bytes; fields read: " << chunk.Fields().size()
              << ", last load: " << chunk.Get("loadavg")->substr(0, 14) << '\n';
    return position;
}

void DamageAndRecover(const std::string& name, std::uint64_t end)
{
    std::cout << "Damaging a copy in the middle, reopening a copy of that, and appending a chunk\n";
    constexpr auto overwrite = std::filesystem::copy_options::overwrite_existing;
    const std::string damaged = name + ".damaged";
    std::filesystem::copy_file(name, damaged, overwrite);
    std::fstream(damaged).seekp(static_cast<std::streamoff>(end / 2)).write("damaged", 7);
    const std::string copy = name + ".recovered";
    std::filesystem::copy_file(damaged, copy, overwrite);
    Require(DataChunkFileAppender(copy, true, kMaxSize).Append(Measure()), "append to a recovered file");
    DataChunkFileReader file(copy);
    Read(file, {});
}

void Tag(const std::string& path, std::uint64_t end)
{
    std::cout << "Tagging the file with extended attributes, and asking for one that is not there\n";
    try {
        ExtendedAttributes::Write(path, XattrTrackSize, std::to_string(end));
        ExtendedAttributes::Write(path, XattrFileSize, std::to_string(std::filesystem::file_size(path)));
        for (const std::string& attribute : ExtendedAttributes::List(path)) {
            std::cout << "  " << attribute << " = " << ExtendedAttributes::Read(path, attribute);
        }
        std::cout << '\n';
        ExtendedAttributes::Read(path, XattrEmptyFile);
    } catch (const std::runtime_error& error) {
        std::cout << "  thrown: " << error.what() << '\n';
    }
}

// Level, logger and text of each log entry, among what the program itself prints.
void ShowLog()
{
    for (const char* const logger : {"DataChunkFileAppender", "DataChunkFileReader", "ExtendedAttributes"}) {
        LoggingManager::SetLevel(logger, 10);
    }
    LoggingManager::SetSink([](const tarn::cv::logging::LogEntry& entry) {
        std::cout << "  " << entry.level << ' ' << entry.logger << ' ' << entry.message << '\n';
    });
}

void Run(double seconds, const std::string& name)
{
    ShowLog();
    MeasureInto(name, seconds);
    std::cout << "Reading it back whole, then only the field \"loadavg\" of each chunk\n";
    DataChunkFileReader file(name);
    const std::uint64_t end = Read(file, {});
    Read(file, {"loadavg"});
    DamageAndRecover(name, end);
    Tag(name, end);
}

}  // namespace

int main(int count, char** arguments)
{
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
