// For crashes.py, which cuts the power of the disk below: replaces a chunk file or reopens one.
// usage: chunk_writer replace HOW FILE GENERATION SIZE | chunk_writer reopen FILE
// HOW is durable or leaves something out: in-place, no-file-sync, no-folder-sync.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <tuple>

#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/File/WriteChunkFileDurably.h"

using Corvane::File::DataChunkFileAppender;
using Corvane::File::WriteChunkFileDurably;
using Corvane::Pellin::DataChunk;
using Corvane::Time::TimePoint;

namespace {

// What a writer has to make: a file of this size in which no chunk equals a chunk of another generation.
struct Task {
    std::string name;
    std::int64_t generation;
    std::uint64_t size;
};

// Fills the file to more than nine tenths. The size of its chunks depends on the generation.
void Fill(DataChunkFileAppender& file, const Task& task)
{
    const std::uint64_t length =
        std::min<std::uint64_t>(10'000, task.size / 30) + static_cast<std::uint64_t>(task.generation) % 100;
    std::uint64_t used = 0;
    for (std::int64_t i = 0; used < task.size - task.size / 10; ++i) {
        DataChunk chunk(TimePoint(task.generation * 1'000'000 + i));
        chunk.Set("p", std::string(length, static_cast<char>(i % 251)));
        if (!file.Append(chunk)) {
            throw std::runtime_error("cannot append to " + file.GetFilename());
        }
        used += chunk.GetSizeOnFile();
    }
}

void Write(const std::string& name, const Task& task)
{
    DataChunkFileAppender file(name, false, task.size);
    Fill(file, task);
}

void Sync(const std::string& name)
{
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd == -1 || ::fsync(fd) == -1) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    ::close(fd);
}

void Replace(const std::string& how, const Task& task)
{
    if (how == "durable") {
        WriteChunkFileDurably(task.name, task.size, [&](DataChunkFileAppender& file) { Fill(file, task); });
        return;
    }
    if (how == "in-place") {
        Write(task.name, task);
        return;
    }
    const std::string fresh = task.name + ".new";
    Write(fresh, task);
    if (how != "no-file-sync") {
        Sync(fresh);
    }
    std::filesystem::rename(fresh, task.name);
    if (how != "no-folder-sync") {
        Sync(std::filesystem::path(task.name).parent_path());
    }
}

// Appends one chunk and prints how many there were.
void Reopen(const std::string& name)
{
    DataChunkFileAppender file(name, true, std::filesystem::file_size(name) + 1'000);
    std::cout << file.GetTimePoints().size() << '\n';
    if (!file.Append(DataChunk(TimePoint(-1)))) {
        throw std::runtime_error("cannot append to " + name);
    }
}

}  // namespace

int main(int count, char** arguments)
{
    try {
        if (count == 6) {
            Replace(arguments[2], {arguments[3], std::stoll(arguments[4]), std::stoull(arguments[5])});
        } else if (count == 3) {
            Reopen(arguments[2]);
        } else {
            throw std::runtime_error("usage: chunk_writer replace HOW FILE GENERATION SIZE | chunk_writer reopen FILE");
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
