// The same work with other stores: see docs/performance.md.
#include <filesystem>
#include <memory>
#include <numeric>
#include <stdexcept>

#include "AttributePeers.h"
#include "Store.h"
#include "harness/Inputs.h"
#include "harness/Measure.h"
#include "harness/Program.h"

namespace bench {

namespace {

// The scanner only reads.
std::vector<Store> AllStores(bool reading)
{
    std::vector<Store> stores = {Ours()};
    if (reading) {
        stores.push_back(OurScanner());
    }
    for (const auto& more :
         {StdioStores(), LmdbStores(), {SqliteStore(), Hdf5Store(), LevelDbStore(), RocksDbStore()}}) {
        stores.insert(stores.end(), more.begin(), more.end());
    }
    return stores;
}

// Uses one store; returns what all stores must agree on.
using Use = std::function<std::uint64_t(const Store&, const std::string& path)>;

// Work on one store: `prepare` makes what it needs, once for reading, else before each run.
struct Work {
    std::string what;
    Use prepare;
    bool reads;
    Use run;
};

Workload OnAllStores(const Options& options, const Data& data, const Work& work, std::uint64_t operations)
{
    const auto makeContenders = [=] {
        std::vector<Contender> contenders;
        for (const Store& store : AllStores(work.reads)) {
            const std::string path = options.folder + "/" + store.name;
            const auto prepare = [=] {
                std::filesystem::remove_all(path);
                work.prepare(store, path);
            };
            contenders.push_back({store.name, [=] { return work.run(store, path); }});
            if (work.reads) {
                prepare();
            } else {
                contenders.back().prepare = prepare;
            }
        }
        return contenders;
    };
    const std::string what = work.what + ", " + SizeText(data.recordSize);
    return {"peers",           what, operations * data.recordSize, operations, {}, makeContenders, {}, 0,
            6 * options.bytes, false};
}

std::vector<std::uint64_t> RandomTimes(const Data& data)
{
    std::vector<std::uint64_t> times(data.count);
    std::iota(times.begin(), times.end(), 0);
    times = Shuffled(times);
    times.resize(data.count / 4);
    return times;
}

std::vector<Workload> StoreWorkloads(const Options& options, std::uint64_t recordSize)
{
    const Data data = {recordSize, options.bytes / recordSize, std::string(recordSize - 16, 'p')};
    const auto times = std::make_shared<std::vector<std::uint64_t>>(RandomTimes(data));
    const std::uint64_t all = data.count;
    const std::uint64_t half = all / 2;
    const auto nothing = [](const Store&, const std::string&) { return 0; };
    const auto writeAll = [=](const Store& store, const std::string& path) { return store.write(path, data, 0, all); };
    const auto writeHalf = [=](const Store& store, const std::string& path) {
        return store.write(path, data, 0, half);
    };
    const Work write = {"write", nothing, false, writeAll};
    const Work append = {
        "reopen half, append half", writeHalf, false,
        [=](const Store& store, const std::string& path) { return store.write(path, data, half, all); }};
    const Work readAll = {"read in order", writeAll, true,
                          [=](const Store& store, const std::string& path) { return store.readAll(path, data); }};
    const Work readAt = {"read at random", writeAll, true,
                         [=](const Store& store, const std::string& path) { return store.readAt(path, data, *times); }};
    return {OnAllStores(options, data, write, all), OnAllStores(options, data, append, all - half),
            OnAllStores(options, data, readAll, all), OnAllStores(options, data, readAt, times->size())};
}

Workload SmallStores(const Options& options)
{
    const Data data = {1024, 16, std::string(1024 - 16, 'p')};
    const std::uint64_t stores = options.quick ? 10 : 50;
    const Use folder = [](const Store&, const std::string& path) { return std::filesystem::create_directory(path); };
    const Work work = {std::to_string(stores) + " stores of 16", folder, false,
                       [=](const Store& store, const std::string& path) {
                           std::uint64_t accepted = 0;
                           for (std::uint64_t i = 0; i < stores; ++i) {
                               accepted += store.write(path + "/" + std::to_string(i), data, 0, data.count);
                           }
                           return accepted;
                       }};
    return OnAllStores(options, data, work, stores);
}

}  // namespace

void Demand(bool good, const char* peer)
{
    if (!good) {
        throw std::runtime_error(std::string("trouble with ") + peer);
    }
}

void MeasurePeers(Options options)
{
    if (!options.only.empty()) {
        throw std::invalid_argument("the work is done as a whole, not by workloads");
    }
    if (options.processorTime) {
        throw std::runtime_error("some stores work in threads or processes of their own: only elapsed time is fair");
    }
    const std::uint64_t bytes = options.bytes;
    for (const std::uint64_t recordSize : {64U, 1024U}) {
        options.bytes = (recordSize == 64 ? 1 : 2) * bytes / 8;  // the slowest stores take very long
        for (const Workload& workload : StoreWorkloads(options, recordSize)) {
            Measure(workload, options);
        }
    }
    for (const std::uint64_t recordSize : {1U << 16U, 1U << 20U}) {
        Measure(StoreWorkloads(options, recordSize)[2], options);  // large records are only read in order
    }
    Measure(SmallStores(options), options);
    for (const Workload& workload : AttributePeerWorkloads(options)) {
        Measure(workload, options);
    }
}

}  // namespace bench

int main(int count, char** arguments)
{
    return bench::Main({arguments + 1, arguments + count}, bench::MeasurePeers);
}
