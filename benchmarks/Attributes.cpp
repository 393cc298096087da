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

// The file whose attributes are used, by path and by descriptor.
struct Target {
    explicit Target(const std::string& folder)
        : path(folder + "/tagged"), fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        if (::setxattr(path.c_str(), kName.c_str(), "0123456789abcdef", 16, 0) != 0) {
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

// Makes a loop of an operation; `call` gets the target and a flag, and returns what the contenders must agree on.
template <typename Call>
std::function<std::uint64_t()> Loop(const std::shared_ptr<Target>& target, std::uint64_t count, const Call& call)
{
    return [=] {
        std::uint64_t sum = 0;
        for (std::uint64_t i = 0; i < (CountingSystemCalls() ? 1 : count); ++i) {
            sum += call(*target);
        }
        return sum;
    };
}

Workload Attribute(const Options& options, const std::string& what, double goal, const Operation& direct,
                   const Operation& ours)
{
    const std::uint64_t count = options.quick ? 2'000 : 50'000;
    const auto makeContenders = [=]() -> std::vector<Contender> {
        const auto target = std::make_shared<Target>(options.folder);
        return {{"limit", {}, Loop(target, count, direct)}, {"ours", {}, Loop(target, count, ours)}};
    };
    return {"W7", what, 0, count, Goal{"limit", goal}, makeContenders, {}, options.seconds / 2};
}

// Success, or the failure, told by the flag.
template <typename Call>
std::uint64_t Flagged(const Call& call)
{
    bool success = false;
    call(success);
    return success ? 1 : 0;
}

std::vector<Workload> Reads(const Options& options)
{
    const auto byPath = [](const std::string& name) {
        return [&name](const Target& target) {
            return ReadDirectly([&](char* value, std::size_t size) {
                return ::getxattr(target.path.c_str(), name.c_str(), value, size);
            });
        };
    };
    const auto byDescriptor = [](const std::string& name) {
        return [&name](const Target& target) {
            return ReadDirectly(
                [&](char* value, std::size_t size) { return ::fgetxattr(target.fd, name.c_str(), value, size); });
        };
    };
    const auto oursByPath = [](const std::string& name) {
        return [&name](const Target& target) {
            bool success = false;
            return ExtendedAttributes::Read(target.path, name, success).size();
        };
    };
    const auto oursByDescriptor = [](const std::string& name) {
        return [&name](const Target& target) {
            bool success = false;
            return ExtendedAttributes::Read(target.fd, name, success).size();
        };
    };
    return {Attribute(options, "read by path", 1.03, byPath(kName), oursByPath(kName)),
            Attribute(options, "read by descriptor", 1.03, byDescriptor(kName), oursByDescriptor(kName)),
            Attribute(options, "fail to read by path", 1.15, byPath(kAbsent), oursByPath(kAbsent)),
            Attribute(options, "fail to read by descriptor", 1.15, byDescriptor(kAbsent), oursByDescriptor(kAbsent))};
}

}  // namespace

std::vector<Workload> AttributeWorkloads(const Options& options)
{
    static const std::string value = "fedcba9876543210";
    const auto set = [](const Target& target) {
        return ::setxattr(target.path.c_str(), kName.c_str(), value.data(), value.size(), 0) == 0 ? 1U : 0U;
    };
    const auto oursSet = [](const Target& target) {
        return Flagged([&](bool& success) { ExtendedAttributes::Write(target.path, kName, value, success); });
    };
    const auto setByDescriptor = [](const Target& target) {
        return ::fsetxattr(target.fd, kName.c_str(), value.data(), value.size(), 0) == 0 ? 1U : 0U;
    };
    const auto oursSetByDescriptor = [](const Target& target) {
        return Flagged([&](bool& success) { ExtendedAttributes::Write(target.fd, kName, value, success); });
    };
    const auto remove = [](const Target& target) {
        return ::removexattr(target.path.c_str(), kAbsent.c_str()) == 0 ? 1U : 0U;
    };
    const auto oursRemove = [](const Target& target) {
        return Flagged([&](bool& success) { ExtendedAttributes::Remove(target.path, kAbsent, success); });
    };
    const auto oursList = [](const Target& target) {
        bool success = false;
        return ExtendedAttributes::List(target.path, success).size();
    };
    std::vector<Workload> workloads = Reads(options);
    workloads.push_back(Attribute(options, "list", 1.03, ListDirectly, oursList));
    workloads.push_back(Attribute(options, "write by path", 1.03, set, oursSet));
    workloads.push_back(Attribute(options, "write by descriptor", 1.03, setByDescriptor, oursSetByDescriptor));
    workloads.push_back(Attribute(options, "fail to remove", 1.15, remove, oursRemove));
    return workloads;
}

}  // namespace bench
