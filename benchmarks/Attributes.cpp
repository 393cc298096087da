#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <set>
#include <stdexcept>

#include "Corvane/File/ExtendedAttributes.h"
#include "Goals.h"
#include "Workloads.h"
#include "harness/ChildProcess.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace bench {

using Corvane::File::ExtendedAttributes;
using tarn::cv::logging::LoggingManager;

namespace {

const std::string kName = "user.__trackSize";      // NOLINT(cert-err58-cpp): without memory there is nothing to measure
const std::string kAbsent = "user.__fileSize";     // NOLINT(cert-err58-cpp): without memory there is nothing to measure
const std::string kLogger = "ExtendedAttributes";  // NOLINT(cert-err58-cpp): without memory there is nothing to measure
const std::string kValue = "fedcba9876543210";     // NOLINT(cert-err58-cpp): without memory there is nothing to measure

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

ssize_t Get(const std::string& path, const std::string& name, char* value, std::size_t size)
{
    return ::getxattr(path.c_str(), name.c_str(), value, size);
}

ssize_t Get(int fd, const std::string& name, char* value, std::size_t size)
{
    return ::fgetxattr(fd, name.c_str(), value, size);
}

bool Set(const std::string& path, const std::string& name, const std::string& value)
{
    return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == 0;
}

bool Set(int fd, const std::string& name, const std::string& value)
{
    return ::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0) == 0;
}

// The limit of failing: the system's text is copied and the logger is asked once. Returns 0.
std::uint64_t FailDirectly()
{
    const std::string reason =
        std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): glibc keeps a text for each thread
    return reason.empty() || LoggingManager::GetLogger(kLogger).GetCurrentLevel() == 0 ? 1 : 0;
}

// The limit of reading: the two calls, and the allocation of the value.
template <typename File>
std::uint64_t ReadDirectly(const File& file, const std::string& name)
{
    const ssize_t size = Get(file, name, nullptr, 0);
    if (size < 0) {
        return FailDirectly();
    }
    std::string value(static_cast<std::size_t>(size), '\0');
    return Get(file, name, value.data(), value.size()) < 0 ? 0 : value.size();
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

Workload Attribute(const Options& options, const std::string& what, const Goal& goal, const Operation& direct,
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
    return {"W7", what, 0, count, goal, makeContenders, {}, options.seconds / 2};
}

// `file` is the target's path or descriptor.
template <typename File>
Workload Read(const Options& options, const std::string& what, const Goal& goal, File Target::* file,
              const std::string& name)
{
    const auto ours = [&name, file](const Target& target) {
        bool success = false;
        return ExtendedAttributes::Read(target.*file, name, success).size();
    };
    return Attribute(
        options, what, goal, [&name, file](const Target& target) { return ReadDirectly(target.*file, name); }, ours);
}

template <typename File>
Workload Write(const Options& options, const std::string& what, File Target::* file)
{
    const auto ours = [file](const Target& target) {
        bool success = false;
        ExtendedAttributes::Write(target.*file, kName, kValue, success);
        return success ? 1U : 0U;
    };
    return Attribute(
        options, what, goals::kAttribute,
        [file](const Target& target) { return Set(target.*file, kName, kValue) ? 1U : 0U; }, ours);
}

Workload List(const Options& options)
{
    return Attribute(options, "list", goals::kAttribute, ListDirectly, [](const Target& target) {
        bool success = false;
        return ExtendedAttributes::List(target.path, success).size();
    });
}

Workload FailToRemove(const Options& options)
{
    const auto direct = [](const Target& target) {
        return ::removexattr(target.path.c_str(), kAbsent.c_str()) == 0 ? 1U : FailDirectly();
    };
    const auto ours = [](const Target& target) {
        bool success = false;
        ExtendedAttributes::Remove(target.path, kAbsent, success);
        return success ? 1U : 0U;
    };
    return Attribute(options, "fail to remove", goals::kFailedAttribute, direct, ours);
}

}  // namespace

std::vector<Workload> AttributeWorkloads(const Options& options)
{
    return {Read(options, "read by path", goals::kAttribute, &Target::path, kName),
            Read(options, "read by descriptor", goals::kAttribute, &Target::fd, kName),
            Read(options, "fail to read by path", goals::kFailedAttribute, &Target::path, kAbsent),
            Read(options, "fail to read by descriptor", goals::kFailedAttribute, &Target::fd, kAbsent),
            List(options),
            Write(options, "write by path", &Target::path),
            Write(options, "write by descriptor", &Target::fd),
            FailToRemove(options)};
}

}  // namespace bench
