// LevelDB and RocksDB, which share their interface.
#include <leveldb/db.h>
#include <rocksdb/db.h>

#include <memory>

#include "Store.h"

namespace bench {

namespace {

// A time as a key that sorts by its bytes.
std::string KeyOf(std::uint64_t time)
{
    std::string key(sizeof time, '\0');
    for (std::size_t i = 0; i < key.size(); ++i) {
        key[key.size() - 1 - i] = static_cast<char>(time >> (8 * i));
    }
    return key;
}

std::uint64_t TimeOf(const char* key)
{
    std::uint64_t time = 0;
    for (std::size_t i = 0; i < sizeof time; ++i) {
        time = time << 8U | static_cast<unsigned char>(key[i]);
    }
    return time;
}

template <typename Db, typename Options, auto kNoCompression>
std::unique_ptr<Db> Open(const std::string& path)
{
    Options options;
    options.create_if_missing = true;
    options.compression = kNoCompression;
    Db* database = nullptr;
    Demand(Db::Open(options, path, &database).ok(), "LevelDB or RocksDB");
    return std::unique_ptr<Db>(database);
}

// Looks a time up before it puts it.
template <auto open>
std::uint64_t Write(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last)
{
    const auto database = open(path);
    std::string value;
    std::uint64_t accepted = 0;
    for (std::uint64_t time = first; time < last; ++time) {
        const std::string key = KeyOf(time);
        if (database->Get({}, key, &value).IsNotFound()) {
            accepted += database->Put({}, key, data.payload).ok() ? 1U : 0U;
        }
    }
    return accepted;
}

template <auto open>
std::uint64_t ReadAll(const std::string& path, const Data& /*data*/)
{
    const auto database = open(path);
    const auto at =
        std::unique_ptr<std::remove_pointer_t<decltype(database->NewIterator({}))>>(database->NewIterator({}));
    std::string payload;
    std::uint64_t sum = 0;
    for (at->SeekToFirst(); at->Valid(); at->Next()) {
        payload.assign(at->value().data(), at->value().size());
        sum += SumOf(TimeOf(at->key().data()), payload.size());
    }
    return sum;
}

template <auto open>
std::uint64_t ReadAt(const std::string& path, const Data& /*data*/, const std::vector<std::uint64_t>& times)
{
    const auto database = open(path);
    std::string value;
    std::uint64_t sum = 0;
    for (const std::uint64_t time : times) {
        Demand(database->Get({}, KeyOf(time), &value).ok(), "LevelDB or RocksDB");
        sum += SumOf(time, value.size());
    }
    return sum;
}

template <auto open>
Store KeyValueStore(const char* name)
{
    return {name, Write<open>, ReadAll<open>, ReadAt<open>};
}

}  // namespace

Store LevelDbStore()
{
    return KeyValueStore<Open<leveldb::DB, leveldb::Options, leveldb::kNoCompression>>("LevelDB");
}

Store RocksDbStore()
{
    return KeyValueStore<Open<rocksdb::DB, rocksdb::Options, rocksdb::kNoCompression>>("RocksDB");
}

}  // namespace bench
