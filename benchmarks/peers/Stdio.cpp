#include <cstdio>
#include <cstring>
#include <memory>
#include <set>

#include "Store.h"

namespace bench {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File Open(const std::string& path, const char* mode)
{
    File file(std::fopen(path.c_str(), mode), &std::fclose);
    Demand(file != nullptr, "stdio");
    return file;
}

std::uint64_t TimeIn(const std::string& record)
{
    std::uint64_t time = 0;
    std::memcpy(&time, record.data(), sizeof time);
    return time;
}

bool Next(std::FILE* file, std::string& record)
{
    return std::feof(file) == 0 && std::ferror(file) == 0 &&
           std::fread(record.data(), 1, record.size(), file) == record.size();
}

void Put(std::FILE* file, std::uint64_t time, const std::string& payload)
{
    std::fwrite(&time, sizeof time, 1, file);
    std::fwrite(payload.data(), 1, payload.size(), file);
}

std::uint64_t Write(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last)
{
    const File file = Open(path, first == 0 ? "w" : "a");
    for (std::uint64_t time = first; time < last; ++time) {
        Put(file.get(), time, data.payload);
    }
    return last - first;
}

std::uint64_t ReadAll(const std::string& path, const Data& data)
{
    const File file = Open(path, "r");
    std::string record(sizeof(std::uint64_t) + data.payload.size(), '\0');
    std::uint64_t sum = 0;
    while (Next(file.get(), record)) {
        sum += SumOf(TimeIn(record), record.size() - sizeof(std::uint64_t));
    }
    return sum;
}

std::uint64_t ReadAt(const std::string& path, const Data& data, const std::vector<std::uint64_t>& times)
{
    const File file = Open(path, "r");
    std::string record(sizeof(std::uint64_t) + data.payload.size(), '\0');
    std::uint64_t sum = 0;
    for (const std::uint64_t time : times) {
        std::fseek(file.get(), static_cast<long>(time * record.size()), SEEK_SET);
        Demand(std::fread(record.data(), 1, record.size(), file.get()) == record.size(), "stdio");
        sum += SumOf(TimeIn(record), record.size() - sizeof(std::uint64_t));
    }
    return sum;
}

// The same with a set that refuses duplicates. An existing file is read first, to fill the set.
std::uint64_t WriteWithSet(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last)
{
    std::set<std::uint64_t> times;
    if (first != 0) {
        const File file = Open(path, "r");
        std::string record(sizeof(std::uint64_t) + data.payload.size(), '\0');
        while (Next(file.get(), record)) {
            times.insert(times.end(), TimeIn(record));
        }
    }
    const File file = Open(path, first == 0 ? "w" : "a");
    const std::size_t before = times.size();
    for (std::uint64_t time = first; time < last; ++time) {
        if (times.insert(time).second) {
            Put(file.get(), time, data.payload);
        }
    }
    return times.size() - before;
}

}  // namespace

std::vector<Store> StdioStores()
{
    return {{"stdio", Write, ReadAll, ReadAt}, {"stdio and set", WriteWithSet, ReadAll, ReadAt}};
}

}  // namespace bench
