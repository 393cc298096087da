#include <leveldb/db.h>

#include "KeyValue.h"

namespace bench {

Store LevelDbStore()
{
    return KeyValueStore<leveldb::DB, leveldb::Options, leveldb::ReadOptions, leveldb::WriteOptions, leveldb::Slice>(
        "LevelDB", [](leveldb::Options& options) { options.compression = leveldb::kNoCompression; });
}

}  // namespace bench
