#include <lmdb.h>

#include <algorithm>
#include <cstring>

#include "Store.h"

namespace bench {

namespace {

void Check(int result)
{
    Demand(result == MDB_SUCCESS, "LMDB");
}

// An environment with one transaction, which destruction commits.
class Transaction {
public:
    Transaction(const std::string& path, const Data& data, unsigned flags)
    {
        Check(mdb_env_create(&environment_));
        Check(mdb_env_set_mapsize(environment_, std::max<std::size_t>(3 * data.count * data.recordSize, 1U << 20U)));
        Check(mdb_env_open(environment_, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOLOCK | flags, 0664));
        Check(mdb_txn_begin(environment_, nullptr, flags & MDB_RDONLY, &transaction_));
        const unsigned create = (flags & MDB_RDONLY) != 0 ? 0U : MDB_CREATE;
        Check(mdb_dbi_open(transaction_, nullptr, MDB_INTEGERKEY | create, &table_));
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction()
    {
        mdb_txn_commit(transaction_);
        mdb_env_close(environment_);
    }

    MDB_txn* Get() const { return transaction_; }
    MDB_dbi Table() const { return table_; }

private:
    MDB_env* environment_ = nullptr;
    MDB_txn* transaction_ = nullptr;
    MDB_dbi table_ = 0;
};

std::uint64_t Write(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last, unsigned flags)
{
    const Transaction transaction(path, data, flags);
    std::uint64_t accepted = 0;
    for (std::uint64_t time = first; time < last; ++time) {
        std::uint64_t key = time;
        MDB_val keyBytes = {sizeof key, &key};
        MDB_val value = {data.payload.size(), const_cast<char*>(data.payload.data())};
        const int result = mdb_put(transaction.Get(), transaction.Table(), &keyBytes, &value, MDB_APPEND);
        accepted += result == MDB_SUCCESS ? 1U : 0U;
    }
    return accepted;
}

std::uint64_t ReadAll(const std::string& path, const Data& data)
{
    const Transaction transaction(path, data, MDB_RDONLY);
    MDB_cursor* cursor = nullptr;
    Check(mdb_cursor_open(transaction.Get(), transaction.Table(), &cursor));
    std::string payload(data.payload.size(), '\0');
    MDB_val key = {};
    MDB_val value = {};
    std::uint64_t sum = 0;
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
        std::uint64_t time = 0;
        std::memcpy(&time, key.mv_data, sizeof time);
        std::memcpy(payload.data(), value.mv_data, value.mv_size);  // all others return a copy
        sum += SumOf(time, value.mv_size);
    }
    mdb_cursor_close(cursor);
    return sum;
}

std::uint64_t ReadAt(const std::string& path, const Data& data, const std::vector<std::uint64_t>& times)
{
    const Transaction transaction(path, data, MDB_RDONLY);
    std::string payload(data.payload.size(), '\0');
    std::uint64_t sum = 0;
    for (std::uint64_t time : times) {
        MDB_val key = {sizeof time, &time};
        MDB_val value = {};
        Check(mdb_get(transaction.Get(), transaction.Table(), &key, &value));
        std::memcpy(payload.data(), value.mv_data, value.mv_size);
        sum += SumOf(time, value.mv_size);
    }
    return sum;
}

}  // namespace

std::vector<Store> LmdbStores()
{
    const auto writer = [](unsigned flags) {
        return [flags](const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last) {
            return Write(path, data, first, last, flags);
        };
    };
    return {{"LMDB", writer(0), ReadAll, ReadAt}, {"LMDB writable map", writer(MDB_WRITEMAP), ReadAll, ReadAt}};
}

}  // namespace bench
