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

// LevelDB and RocksDB, which share their interface. A time is looked up before it is put.
template <typename Db, typename Options, typename ReadOptions, typename WriteOptions, typename Slice, typename Adjust>
Store KeyValueStore(const char* name, const Adjust& adjust)
{
    const auto open = [=](const std::string& path) {
        Options options;
        options.create_if_missing = true;
        adjust(options);
        Db* db = nullptr;
        Demand(Db::Open(options, path, &db).ok(), name);
        return std::unique_ptr<Db>(db);
    };
    const auto write = [=](const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last) {
        const auto db = open(path);
        std::string value;
        std::uint64_t accepted = 0;
        for (std::uint64_t time = first; time < last; ++time) {
            const std::string key = KeyOf(time);
            if (db->Get(ReadOptions(), Slice(key), &value).IsNotFound()) {
                accepted += db->Put(WriteOptions(), Slice(key), Slice(data.payload)).ok() ? 1U : 0U;
            }
        }
        return accepted;
    };
    const auto readAll = [=](const std::string& path, const Data&) {
        const auto db = open(path);
        std::string payload;
        std::uint64_t sum = 0;
        const auto at = std::unique_ptr<std::remove_pointer_t<decltype(db->NewIterator(ReadOptions()))>>(
            db->NewIterator(ReadOptions()));
        for (at->SeekToFirst(); at->Valid(); at->Next()) {
            payload.assign(at->value().data(), at->value().size());
            sum += SumOf(TimeOf(at->key().data()), payload.size());
        }
        return sum;
    };
    const auto readAt = [=](const std::string& path, const Data&, const std::vector<std::uint64_t>& times) {
        const auto db = open(path);
        std::string value;
        std::uint64_t sum = 0;
        for (const std::uint64_t time : times) {
            Demand(db->Get(ReadOptions(), Slice(KeyOf(time)), &value).ok(), name);
            sum += SumOf(time, value.size());
        }
        return sum;
    };
    return {name, write, readAll, readAt};
}

}  // namespace bench
