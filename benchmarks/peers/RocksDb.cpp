#include <rocksdb/db.h>

#include "KeyValue.h"

namespace bench {

namespace {

struct Engine {
    using Db = rocksdb::DB;
    using Iterator = rocksdb::Iterator;
    using Options = rocksdb::Options;
    using Slice = rocksdb::Slice;
    static constexpr const char* kName = "RocksDB";
    static constexpr auto kCompression = rocksdb::kNoCompression;
};

}  // namespace

Store RocksDbStore()
{
    return KeyValueStore<Engine>::Make();
}

}  // namespace bench
