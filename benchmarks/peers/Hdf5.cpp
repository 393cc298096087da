#include <hdf5.h>
#include <hdf5_hl.h>

#include <algorithm>
#include <cstring>

#include "Store.h"

namespace bench {

namespace {

constexpr const char* kTable = "chunks";

// A file with one packet table. A packet is a time and a payload; duplicates are accepted.
class Table {
public:
    Table(const std::string& path, const Data& data, bool create)
        : packet_(sizeof(std::uint64_t) + data.payload.size(), '\0')
    {
        std::copy(data.payload.begin(), data.payload.end(), packet_.begin() + sizeof(std::uint64_t));
        if (create) {
            file_ = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
            const hid_t type = H5Tcreate(H5T_OPAQUE, packet_.size());
            const auto packets = static_cast<hsize_t>(std::max<std::size_t>(1, 65536 / packet_.size()));
            table_ = H5PTcreate(file_, kTable, type, packets, H5P_DEFAULT);
            H5Tclose(type);
        } else {
            file_ = H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
            table_ = H5PTopen(file_, kTable);
        }
        Demand(table_ >= 0, "HDF5");
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table()
    {
        H5PTclose(table_);
        H5Fclose(file_);
    }

    bool Put(std::uint64_t time)
    {
        std::memcpy(packet_.data(), &time, sizeof time);
        return H5PTappend(table_, 1, packet_.data()) >= 0;
    }

    std::uint64_t Get(std::uint64_t number)
    {
        Demand(H5PTread_packets(table_, number, 1, packet_.data()) >= 0, "HDF5");
        std::uint64_t time = 0;
        std::memcpy(&time, packet_.data(), sizeof time);
        return SumOf(time, packet_.size() - sizeof time);
    }

private:
    std::string packet_;
    hid_t file_ = -1;
    hid_t table_ = -1;
};

std::uint64_t Write(const std::string& path, const Data& data, std::uint64_t first, std::uint64_t last)
{
    Table table(path, data, first == 0);
    std::uint64_t accepted = 0;
    for (std::uint64_t time = first; time < last; ++time) {
        accepted += table.Put(time) ? 1U : 0U;
    }
    return accepted;
}

std::uint64_t ReadAll(const std::string& path, const Data& data)
{
    Table table(path, data, false);
    std::uint64_t sum = 0;
    for (std::uint64_t number = 0; number < data.count; ++number) {
        sum += table.Get(number);
    }
    return sum;
}

std::uint64_t ReadAt(const std::string& path, const Data& data, const std::vector<std::uint64_t>& times)
{
    Table table(path, data, false);
    std::uint64_t sum = 0;
    for (const std::uint64_t time : times) {
        sum += table.Get(time);
    }
    return sum;
}

}  // namespace

Store Hdf5Store()
{
    return {"HDF5 packets", Write, ReadAll, ReadAt};
}

}  // namespace bench
