#include <sqlite3.h>

#include <memory>

#include "Store.h"

namespace bench {

namespace {

using Database = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;
using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

void Execute(sqlite3* database, const char* text)
{
    Demand(sqlite3_exec(database, text, nullptr, nullptr, nullptr) == SQLITE_OK, "SQLite");
}

Database Open(const std::string& path)
{
    sqlite3* database = nullptr;
    Demand(sqlite3_open(path.c_str(), &database) == SQLITE_OK, "SQLite");
    Execute(database, "PRAGMA synchronous=OFF; PRAGMA journal_mode=OFF");
    return {database, &sqlite3_close};
}

Statement Prepare(sqlite3* database, const char* text)
{
    sqlite3_stmt* statement = nullptr;
    Demand(sqlite3_prepare_v2(database, text, -1, &statement, nullptr) == SQLITE_OK, "SQLite");
    return {statement, &sqlite3_finalize};
}

std::uint64_t Write(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last)
{
    const Database database = Open(path);
    Execute(database.get(), "CREATE TABLE IF NOT EXISTS chunks (time INTEGER PRIMARY KEY, value BLOB); BEGIN");
    const Statement insert = Prepare(database.get(), "INSERT OR IGNORE INTO chunks VALUES (?, ?)");
    std::uint64_t accepted = 0;
    for (std::uint64_t time = first; time < last; ++time) {
        sqlite3_bind_int64(insert.get(), 1, static_cast<sqlite3_int64>(time));
        sqlite3_bind_blob(insert.get(), 2, data.payload.data(), static_cast<int>(data.payload.size()), SQLITE_STATIC);
        sqlite3_step(insert.get());
        accepted += static_cast<std::uint64_t>(sqlite3_changes(database.get()));
        sqlite3_reset(insert.get());
    }
    Execute(database.get(), "COMMIT");
    return accepted;
}

std::uint64_t SumOfRow(sqlite3_stmt* row)
{
    std::string payload;
    payload.assign(static_cast<const char*>(sqlite3_column_blob(row, 1)),
                   static_cast<std::size_t>(sqlite3_column_bytes(row, 1)));
    return SumOf(static_cast<std::uint64_t>(sqlite3_column_int64(row, 0)), payload.size());
}

std::uint64_t ReadAll(const std::string& path, const Data& /*data*/)
{
    const Database database = Open(path);
    const Statement select = Prepare(database.get(), "SELECT time, value FROM chunks ORDER BY time");
    std::uint64_t sum = 0;
    while (sqlite3_step(select.get()) == SQLITE_ROW) {
        sum += SumOfRow(select.get());
    }
    return sum;
}

std::uint64_t ReadAt(const std::string& path, const Data& /*data*/, const std::vector<std::uint64_t>& times)
{
    const Database database = Open(path);
    const Statement select = Prepare(database.get(), "SELECT time, value FROM chunks WHERE time = ?");
    std::uint64_t sum = 0;
    for (const std::uint64_t time : times) {
        sqlite3_bind_int64(select.get(), 1, static_cast<sqlite3_int64>(time));
        Demand(sqlite3_step(select.get()) == SQLITE_ROW, "SQLite");
        sum += SumOfRow(select.get());
        sqlite3_reset(select.get());
    }
    return sum;
}

}  // namespace

Store SqliteStore()
{
    return {"SQLite", Write, ReadAll, ReadAt};
}

}  // namespace bench
