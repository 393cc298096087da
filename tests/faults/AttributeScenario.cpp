#include "faults/AttributeScenario.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "Corvane/File/ExtendedAttributes.h"

namespace faults {

using Corvane::File::ExtendedAttributes;
using support::SystemCall;

namespace {

constexpr std::string_view kOldValue = "the value of old";
constexpr std::size_t kEnoughBytes = 4096;

// The value on disk; empty if there is none.
std::string Stored(int fd, const std::string& name)
{
    std::string value(kEnoughBytes, '\0');
    const ssize_t size = ::fgetxattr(fd, name.c_str(), value.data(), value.size());
    value.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    return value;
}

void Store(int fd, const std::string& name, std::string_view value)
{
    if (::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0) != 0) {
        throw std::runtime_error("cannot set " + name);
    }
}

std::string Target(const char* joint, bool byFd, const AttributeWork& work)
{
    return joint + (byFd ? std::to_string(work.fd) : work.path);
}

}  // namespace

AttributeScenario::AttributeScenario(AttributeOperation operation) : operation_(std::move(operation))
{
    work_.path = folder_ / "a";
    work_.fd = ::open(work_.path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

AttributeScenario::~AttributeScenario()
{
    ::close(work_.fd);
}

void AttributeScenario::Prepare()
{
    Store(work_.fd, "user.first", kOldValue);
    Store(work_.fd, "user.second", "2");
    listSize_ = static_cast<std::size_t>(::flistxattr(work_.fd, nullptr, 0));
}

void AttributeScenario::Run()
{
    end_ = End::kThrown;
    work_.success = false;
    Try([this] {
        operation_.call(work_);
        end_ = work_.success ? End::kSuccess : End::kFailure;
    });
    if (!thrown.empty() && thrown[0] != "std::bad_alloc") {
        end_ = End::kFailure;
    }
}

bool AttributeScenario::Succeeded() const
{
    return end_ == End::kSuccess;
}

bool AttributeScenario::Recovered() const
{
    return true;  // each operation is one call, made once
}

// Log entries and exceptions follow from a failed system call, which is always the last one.
void AttributeScenario::CheckReport(const Traces& traces) const
{
    Lines lines;
    std::vector<std::string> exceptions;
    if (!traces.calls.empty() && traces.calls.back().result == -1) {
        const std::string reason = std::generic_category().message(traces.calls.back().error);
        lines.push_back("10 " + operation_.text(work_, traces.calls.size() == 1) + ": " + reason);
        if (operation_.thrownText) {
            lines.push_back("40 " + operation_.thrownText(work_));
            exceptions.push_back("std::runtime_error: " + operation_.thrownText(work_));
        }
    }
    ExpectLines(traces, lines, traces.fault.allocation);
    EXPECT_EQ(thrown, traces.fault.allocation ? std::vector<std::string>{"std::bad_alloc"} : exceptions);
}

void AttributeScenario::Check(const Traces& traces) const
{
    const auto& calls = traces.calls;
    const bool allowed =
        std::all_of(calls.begin(), calls.end(), [](const SystemCall& call) { return call.result >= 0; });
    EXPECT_TRUE(end_ == End::kThrown || (end_ == End::kSuccess) == allowed);
    EXPECT_EQ(Stored(work_.fd, "user.first"),
              operation_.changes && allowed ? std::string_view(operation_.valueAfter) : kOldValue);
    EXPECT_EQ(Stored(work_.fd, "user.second"), "2");
    CheckReport(traces);
    if (end_ == End::kSuccess && !operation_.changes) {
        CheckResult(calls);
    }
}

void AttributeScenario::CheckResult(const std::vector<SystemCall>& calls) const
{
    const auto size = static_cast<std::size_t>(calls.at(0).result);
    if (calls.at(0).name != "listxattr") {
        EXPECT_EQ(work_.value, kOldValue.substr(0, size));
        return;
    }
    std::set<std::string> names = work_.names;
    std::erase_if(names, [](const std::string& name) { return name.rfind("user.", 0) != 0; });  // the system's
    const std::set<std::string> all = {"user.first", "user.second"};
    EXPECT_TRUE(std::includes(all.begin(), all.end(), names.begin(), names.end()));
    const bool whole = std::all_of(calls.begin(), calls.end(), [this](const SystemCall& call) {
        return static_cast<std::size_t>(call.result) >= listSize_;
    });
    EXPECT_TRUE(names == all || !whole);
}

std::vector<AttributeOperation> AttributeOperations()
{
    using Work = AttributeWork;
    const auto throws = [](const auto& operation) {
        return [operation](Work& work) {
            operation(work);
            work.success = true;
        };
    };
    const auto read = [](const char* joint, bool byFd) {
        return [joint, byFd](const Work& work, bool afterFirst) {
            return "Cannot get " + std::string(afterFirst ? "size" : "value") + " for xattr " + work.name +
                   Target(joint, byFd, work);
        };
    };
    const auto readOrThrow = [](const char* joint, bool byFd) {
        return [joint, byFd](const Work& work) {
            return "Cannot get value of xattr " + work.name + Target(joint, byFd, work);
        };
    };
    const auto list = [](const Work& work, bool afterFirst) {
        return "Cannot get xattr list" + std::string(afterFirst ? " size" : "") + " for " + work.path;
    };
    const auto listOrThrow = [](const Work& work) { return "Cannot get xattr list for " + work.path; };
    const auto write = [](const char* joint, bool byFd) {
        return [joint, byFd](const Work& work, bool = true) {
            return "Cannot set " + work.name + " to " + work.newValue + Target(joint, byFd, work);
        };
    };
    const auto remove = [](const Work& work, bool = true) { return "Cannot remove " + work.name + " on " + work.path; };
    const std::string another = Work().newValue;
    return {
        {"ReadByFd",
         false,
         {},
         [](Work& w) { w.value = ExtendedAttributes::Read(w.fd, w.name, w.success); },
         read(" on fd ", true)},
        {"ReadByFdOrThrow",
         false,
         {},
         throws([](Work& w) { w.value = ExtendedAttributes::Read(w.fd, w.name); }),
         read(" on fd ", true),
         readOrThrow(" on fd ", true)},
        {"Read",
         false,
         {},
         [](Work& w) { w.value = ExtendedAttributes::Read(w.path, w.name, w.success); },
         read(" of ", false)},
        {"ReadOrThrow",
         false,
         {},
         throws([](Work& w) { w.value = ExtendedAttributes::Read(w.path, w.name); }),
         read(" of ", false),
         readOrThrow(" of ", false)},
        {"List", false, {}, [](Work& w) { w.names = ExtendedAttributes::List(w.path, w.success); }, list},
        {"ListOrThrow",
         false,
         {},
         throws([](Work& w) { w.names = ExtendedAttributes::List(w.path); }),
         list,
         listOrThrow},
        {"WriteByFd", true, another, [](Work& w) { ExtendedAttributes::Write(w.fd, w.name, w.newValue, w.success); },
         write(" on ", true)},
        {"WriteByFdOrThrow", true, another,
         throws([](Work& w) { ExtendedAttributes::Write(w.fd, w.name, w.newValue); }), write(" on ", true),
         write(" on ", true)},
        {"Write", true, another, [](Work& w) { ExtendedAttributes::Write(w.path, w.name, w.newValue, w.success); },
         write(" on ", false)},
        {"WriteOrThrow", true, another, throws([](Work& w) { ExtendedAttributes::Write(w.path, w.name, w.newValue); }),
         write(" on ", false), write(" on ", false)},
        {"Remove", true, {}, [](Work& w) { ExtendedAttributes::Remove(w.path, w.name, w.success); }, remove},
        {"RemoveOrThrow",
         true,
         {},
         throws([](Work& w) { ExtendedAttributes::Remove(w.path, w.name); }),
         remove,
         remove},
    };
}

}  // namespace faults
