#include <rocksdb/db.h>

#include "KeyValue.h"

namespace bench {

Store RocksDbStore()
{
    return KeyValueStore<rocksdb::DB, rocksdb::Options, rocksdb::ReadOptions, rocksdb::WriteOptions, rocksdb::Slice>(
        "RocksDB", [](rocksdb::Options& options) { options.compression = rocksdb::kNoCompression; });
}

}  // namespace bench
