#pragma once

#include <memory>
#include <string>

#include "Store.h"

namespace bench {

// A time as a key that sorts by its bytes.
inline std::string KeyOf(std::uint64_t time)
{
    std::string key(sizeof time, '\0');
    for (std::size_t i = 0; i < key.size(); ++i) {
        key[key.size() - 1 - i] = static_cast<char>(time >> (8 * i));
    }
    return key;
}

inline std::uint64_t TimeOf(const char* key)
{
    std::uint64_t time = 0;
    for (std::size_t i = 0; i < sizeof time; ++i) {
        time = time << 8U | static_cast<unsigned char>(key[i]);
    }
    return time;
}

// LevelDB and RocksDB, which share their interface: Engine names its types. A time is looked up before it is put.
template <typename Engine>
struct KeyValueStore {
    using Database = std::unique_ptr<typename Engine::Db>;
    using Slice = typename Engine::Slice;

    static Store Make() { return {Engine::kName, Write, ReadAll, ReadAt}; }

    static Database Open(const std::string& path)
    {
        typename Engine::Options options;
        options.create_if_missing = true;
        options.compression = Engine::kCompression;
        typename Engine::Db* database = nullptr;
        Demand(Engine::Db::Open(options, path, &database).ok(), Engine::kName);
        return Database(database);
    }

    static std::uint64_t Write(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last)
    {
        const Database database = Open(path);
        std::string value;
        std::uint64_t accepted = 0;
        for (std::uint64_t time = first; time < last; ++time) {
            const std::string key = KeyOf(time);
            if (database->Get({}, Slice(key), &value).IsNotFound()) {
                accepted += database->Put({}, Slice(key), Slice(data.payload)).ok() ? 1U : 0U;
            }
        }
        return accepted;
    }

    static std::uint64_t ReadAll(const std::string& path, const Data& /*data*/)
    {
        const Database database = Open(path);
        const std::unique_ptr<typename Engine::Iterator> at(database->NewIterator({}));
        std::string payload;
        std::uint64_t sum = 0;
        for (at->SeekToFirst(); at->Valid(); at->Next()) {
            payload.assign(at->value().data(), at->value().size());
            sum += SumOf(TimeOf(at->key().data()), payload.size());
        }
        return sum;
    }

    static std::uint64_t ReadAt(const std::string& path, const Data& /*data*/, const std::vector<std::uint64_t>& times)
    {
        const Database database = Open(path);
        std::string value;
        std::uint64_t sum = 0;
        for (const std::uint64_t time : times) {
            Demand(database->Get({}, Slice(KeyOf(time)), &value).ok(), Engine::kName);
            sum += SumOf(time, value.size());
        }
        return sum;
    }
};

}  // namespace bench
