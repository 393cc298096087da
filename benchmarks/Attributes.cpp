#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <stdexcept>

#include "Corvane/File/ExtendedAttributes.h"
#include "Workloads.h"
#include "harness/ChildProcess.h"

namespace bench {

using Corvane::File::ExtendedAttributes;

namespace {

const std::string kName = "user.__trackSize";   // NOLINT(cert-err58-cpp): without memory there is nothing to measure
const std::string kAbsent = "user.__fileSize";  // NOLINT(cert-err58-cpp): without memory there is nothing to measure
const std::string kValue = "fedcba9876543210";  // NOLINT(cert-err58-cpp): without memory there is nothing to measure

// The file whose attributes are used, by path and by descriptor.
struct Target {
    explicit Target(const std::string& folder)
        : path(folder + "/tagged"), fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        if (::setxattr(path.c_str(), kName.c_str(), kValue.data(), kValue.size(), 0) != 0) {
            throw std::runtime_error("no extended attributes in " + folder);
        }
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;
    ~Target() { ::close(fd); }

    std::string path;
    int fd;
};

using Operation = std::function<std::uint64_t(const Target&)>;

// The calls that reading a value takes, and the value.
template <typename GetValue>
std::uint64_t ReadDirectly(const GetValue& getValue)
{
    const ssize_t size = getValue(nullptr, 0);
    if (size < 0) {
        return 0;
    }
    std::string value(static_cast<std::size_t>(size), '\0');
    return getValue(value.data(), value.size()) < 0 ? 0 : value.size();
}

std::uint64_t ListDirectly(const Target& target)
{
    std::vector<char> list(static_cast<std::size_t>(::listxattr(target.path.c_str(), nullptr, 0)));
    const ssize_t used = ::listxattr(target.path.c_str(), list.data(), list.size());
    std::set<std::string> names;
    for (const char* name = list.data(); name < list.data() + used; name += names.rbegin()->size() + 1) {
        names.emplace_hint(names.end(), name);
    }
    return names.size();
}

// Reads through the library; `file` is a path or a descriptor.
template <typename File>
std::uint64_t ReadThrough(const File& file, const std::string& name)
{
    bool success = false;
    return ExtendedAttributes::Read(file, name, success).size();
}

// An operation of the library that sets a flag.
template <typename Call>
Operation Flagged(const Call& call)
{
    return [=](const Target& target) {
        bool success = false;
        call(target, success);
        return success ? 1U : 0U;
    };
}

Workload Attribute(const Options& options, const std::string& what, double goal, const Operation& direct,
                   const Operation& ours)
{
    const std::uint64_t count = options.quick ? 2'000 : 50'000;
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const auto target = std::make_shared<Target>(options.folder);
        const auto repeat = [=](const Operation& operation) {
            return [=] {
                std::uint64_t sum = 0;
                for (std::uint64_t i = 0; i < (CountingSystemCalls() ? 1 : count); ++i) {
                    sum += operation(*target);
                }
                return sum;
            };
        };
        return {{"limit", repeat(direct)}, {"ours", repeat(ours)}};
    };
    return {"W7", what, 0, count, Goal{"limit", goal}, makeContenders, {}, options.seconds / 2};
}

// Reads an attribute that is there or not.
std::vector<Workload> Reads(const Options& options, const std::string& what, double goal, const std::string& name)
{
    const auto byPath = [&name](const Target& target) {
        return ReadDirectly(
            [&](char* value, std::size_t size) { return ::getxattr(target.path.c_str(), name.c_str(), value, size); });
    };
    const auto byDescriptor = [&name](const Target& target) {
        return ReadDirectly(
            [&](char* value, std::size_t size) { return ::fgetxattr(target.fd, name.c_str(), value, size); });
    };
    return {Attribute(options, what + " by path", goal, byPath,
                      [&name](const Target& target) { return ReadThrough(target.path, name); }),
            Attribute(options, what + " by descriptor", goal, byDescriptor,
                      [&name](const Target& target) { return ReadThrough(target.fd, name); })};
}

Workload List(const Options& options)
{
    return Attribute(options, "list", 1.03, ListDirectly, [](const Target& target) {
        bool success = false;
        return ExtendedAttributes::List(target.path, success).size();
    });
}

std::vector<Workload> Changes(const Options& options)
{
    const auto write = [](const Target& target) {
        return ::setxattr(target.path.c_str(), kName.c_str(), kValue.data(), kValue.size(), 0) == 0 ? 1U : 0U;
    };
    const auto writeByDescriptor = [](const Target& target) {
        return ::fsetxattr(target.fd, kName.c_str(), kValue.data(), kValue.size(), 0) == 0 ? 1U : 0U;
    };
    const auto remove = [](const Target& target) {
        return ::removexattr(target.path.c_str(), kAbsent.c_str()) == 0 ? 1U : 0U;
    };
    return {Attribute(options, "write by path", 1.03, write, Flagged([](const Target& target, bool& success) {
                          ExtendedAttributes::Write(target.path, kName, kValue, success);
                      })),
            Attribute(options, "write by descriptor", 1.03, writeByDescriptor,
                      Flagged([](const Target& target, bool& success) {
                          ExtendedAttributes::Write(target.fd, kName, kValue, success);
                      })),
            Attribute(options, "fail to remove", 1.15, remove, Flagged([](const Target& target, bool& success) {
                          ExtendedAttributes::Remove(target.path, kAbsent, success);
                      }))};
}

}  // namespace

std::vector<Workload> AttributeWorkloads(const Options& options)
{
    std::vector<Workload> workloads = Reads(options, "read", 1.03, kName);
    for (const auto& more : {Reads(options, "fail to read", 1.15, kAbsent), {List(options)}, Changes(options)}) {
        workloads.insert(workloads.end(), more.begin(), more.end());
    }
    return workloads;
}

}  // namespace bench
