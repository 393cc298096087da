#include "faults/AttributeScenario.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string_view>
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
    try {
        operation_.call(work_);
        end_ = work_.success ? End::kSuccess : End::kFailure;
    } catch (const std::runtime_error&) {
        end_ = End::kFailure;
    } catch (const std::bad_alloc&) {
        end_ = End::kThrown;
    }
}

bool AttributeScenario::Succeeded() const
{
    return end_ == End::kSuccess;
}

bool AttributeScenario::Recovered() const
{
    return true;  // nothing is done twice: each call stands alone
}

void AttributeScenario::Check(const std::vector<SystemCall>& calls) const
{
    const bool allowed =
        std::all_of(calls.begin(), calls.end(), [](const SystemCall& call) { return call.result >= 0; });
    EXPECT_TRUE(end_ == End::kThrown || (end_ == End::kSuccess) == allowed);
    EXPECT_EQ(Stored(work_.fd, "user.first"),
              operation_.changes && allowed ? std::string_view(operation_.valueAfter) : kOldValue);
    EXPECT_EQ(Stored(work_.fd, "user.second"), "2");
    if (end_ != End::kSuccess || operation_.changes) {
        return;
    }
    const auto size = static_cast<std::size_t>(calls.at(0).result);
    if (calls.at(0).name == "listxattr") {
        std::set<std::string> names = work_.names;
        std::erase_if(names, [](const std::string& name) { return name.rfind("user.", 0) != 0; });  // the system's
        const std::set<std::string> all = {"user.first", "user.second"};
        EXPECT_TRUE(std::includes(all.begin(), all.end(), names.begin(), names.end()));
        const bool whole = std::all_of(calls.begin(), calls.end(), [this](const SystemCall& call) {
            return static_cast<std::size_t>(call.result) >= listSize_;
        });
        EXPECT_TRUE(names == all || !whole);
    } else {
        EXPECT_EQ(work_.value, kOldValue.substr(0, size));
    }
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
    const std::string another = Work().newValue;
    return {
        {"ReadByFd", false, {}, [](Work& w) { w.value = ExtendedAttributes::Read(w.fd, w.name, w.success); }},
        {"ReadByFdOrThrow", false, {}, throws([](Work& w) { w.value = ExtendedAttributes::Read(w.fd, w.name); })},
        {"Read", false, {}, [](Work& w) { w.value = ExtendedAttributes::Read(w.path, w.name, w.success); }},
        {"ReadOrThrow", false, {}, throws([](Work& w) { w.value = ExtendedAttributes::Read(w.path, w.name); })},
        {"List", false, {}, [](Work& w) { w.names = ExtendedAttributes::List(w.path, w.success); }},
        {"ListOrThrow", false, {}, throws([](Work& w) { w.names = ExtendedAttributes::List(w.path); })},
        {"WriteByFd", true, another, [](Work& w) { ExtendedAttributes::Write(w.fd, w.name, w.newValue, w.success); }},
        {"WriteByFdOrThrow", true, another,
         throws([](Work& w) { ExtendedAttributes::Write(w.fd, w.name, w.newValue); })},
        {"Write", true, another, [](Work& w) { ExtendedAttributes::Write(w.path, w.name, w.newValue, w.success); }},
        {"WriteOrThrow", true, another, throws([](Work& w) { ExtendedAttributes::Write(w.path, w.name, w.newValue); })},
        {"Remove", true, {}, [](Work& w) { ExtendedAttributes::Remove(w.path, w.name, w.success); }},
        {"RemoveOrThrow", true, {}, throws([](Work& w) { ExtendedAttributes::Remove(w.path, w.name); })},
    };
}

}  // namespace faults
