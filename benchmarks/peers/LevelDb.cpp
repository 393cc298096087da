#include <leveldb/db.h>

#include "KeyValue.h"

namespace bench {

namespace {

struct Engine {
    using Db = leveldb::DB;
    using Iterator = leveldb::Iterator;
    using Options = leveldb::Options;
    using Slice = leveldb::Slice;
    static constexpr const char* kName = "LevelDB";
    static constexpr auto kCompression = leveldb::kNoCompression;
};

}  // namespace

Store LevelDbStore()
{
    return KeyValueStore<Engine>::Make();
}

}  // namespace bench
