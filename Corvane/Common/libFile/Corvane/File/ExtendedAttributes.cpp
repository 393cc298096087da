#include "Corvane/File/ExtendedAttributes.h"

#include <sys/xattr.h>

#include <source_location>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Corvane/File/Log.h"
#include "tarn/cv/logging/LoggingManager.h"

namespace Corvane::File {

using std::source_location;
using tarn::cv::logging::LoggingManager;

namespace {

// Issues one log entry. The logger is looked up for the level and again for the entry: a registry may change meanwhile.
template <typename MakeText>
void Report(std::int32_t level, const MakeText& makeText, const source_location& where)
{
    if (LoggingManager::GetLogger("ExtendedAttributes").GetCurrentLevel() <= level) {
        const std::string text = makeText();
        LoggingManager::GetLogger("ExtendedAttributes")
            .Log(level, text, where.file_name(), static_cast<std::int32_t>(where.line()));
    }
}

// How a flag variant ends after a failed system call. Call it before anything else can change errno.
template <typename MakeText>
void Fail(bool& success, const MakeText& makeText, const source_location& where = source_location::current())
{
    const std::string reason = SystemReason();
    Report(kDebugLevel, [&] { return Join(makeText(), ": ", reason); }, where);
    success = false;
}

// How a throwing variant ends: returns only if the flag variant succeeded.
template <typename MakeText>
void ThrowUnless(bool success, const MakeText& makeText, const source_location& where = source_location::current())
{
    if (!success) {
        Report(kErrorLevel, makeText, where);
        throw std::runtime_error(makeText());
    }
}

// Asks for a value's size, then for the value. getValue is fgetxattr or getxattr of the target; failSize and failValue
// report the failure of the first call and of the second.
template <typename GetValue, typename FailSize, typename FailValue>
std::string ReadValue(const GetValue& getValue, const FailSize& failSize, const FailValue& failValue, bool& success)
{
    success = true;
    std::string value;
    const ssize_t size = getValue(nullptr, 0);
    if (size < 0) {
        failSize();
        return value;
    }
    value.resize(static_cast<std::size_t>(size));
    if (getValue(value.data(), value.size()) < 0) {
        failValue();
    }
    return value;
}

// Returns the zero-terminated names that begin within the first `used` bytes. Bytes without a terminator are no name.
std::set<std::string> SplitNames(std::string_view buffer, std::size_t used)
{
    std::set<std::string> names;
    for (std::size_t at = 0; at < used;) {
        const std::size_t end = buffer.find('\0', at);
        if (end == std::string_view::npos) {
            break;
        }
        names.emplace(buffer.substr(at, end - at));
        at = end + 1;
    }
    return names;
}

}  // namespace

std::string ExtendedAttributes::Read(int fd, const std::string& name, bool& success)
{
    const auto get = [&](char* value, std::size_t size) { return ::fgetxattr(fd, name.c_str(), value, size); };
    const auto failSize = [&] {
        Fail(success, [&] { return Join("Cannot get size for xattr ", name, " on fd ", fd); });
    };
    const auto failValue = [&] {
        Fail(success, [&] { return Join("Cannot get value for xattr ", name, " on fd ", fd); });
    };
    return ReadValue(get, failSize, failValue, success);
}

std::string ExtendedAttributes::Read(int fd, const std::string& name)
{
    bool success = false;
    std::string value = Read(fd, name, success);
    ThrowUnless(success, [&] { return Join("Cannot get value of xattr ", name, " on fd ", fd); });
    return value;
}

std::string ExtendedAttributes::Read(const std::string& path, const std::string& name, bool& success)
{
    const auto get = [&](char* value, std::size_t size) { return ::getxattr(path.c_str(), name.c_str(), value, size); };
    const auto failSize = [&] {
        Fail(success, [&] { return Join("Cannot get size for xattr ", name, " of ", path); });
    };
    const auto failValue = [&] {
        Fail(success, [&] { return Join("Cannot get value for xattr ", name, " of ", path); });
    };
    return ReadValue(get, failSize, failValue, success);
}

std::string ExtendedAttributes::Read(const std::string& path, const std::string& name)
{
    bool success = false;
    std::string value = Read(path, name, success);
    ThrowUnless(success, [&] { return Join("Cannot get value of xattr ", name, " of ", path); });
    return value;
}

std::set<std::string> ExtendedAttributes::List(const std::string& path, bool& success)
{
    success = true;
    const ssize_t size = ::listxattr(path.c_str(), nullptr, 0);
    if (size < 0) {
        Fail(success, [&] { return Join("Cannot get xattr list size for ", path); });
        return {};
    }
    std::vector<char> list(static_cast<std::size_t>(size));
    const ssize_t used = ::listxattr(path.c_str(), list.data(), list.size());
    if (used < 0) {
        Fail(success, [&] { return Join("Cannot get xattr list for ", path); });
        return {};
    }
    // If names appear after a size of 0, the second call has an empty buffer: the system reports a length and stores
    // no name.
    return SplitNames({list.data(), list.size()}, static_cast<std::size_t>(used));
}

std::set<std::string> ExtendedAttributes::List(const std::string& path)
{
    bool success = false;
    std::set<std::string> names = List(path, success);
    ThrowUnless(success, [&] { return Join("Cannot get xattr list for ", path); });
    return names;
}

void ExtendedAttributes::Write(int fd, const std::string& name, const std::string& value, bool& success)
{
    if (::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0) == -1) {
        Fail(success, [&] { return Join("Cannot set ", name, " to ", value, " on ", fd); });
        return;
    }
    success = true;
}

void ExtendedAttributes::Write(int fd, const std::string& name, const std::string& value)
{
    bool success = false;
    Write(fd, name, value, success);
    ThrowUnless(success, [&] { return Join("Cannot set ", name, " to ", value, " on ", fd); });
}

void ExtendedAttributes::Write(const std::string& path, const std::string& name, const std::string& value,
                               bool& success)
{
    if (::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) == -1) {
        Fail(success, [&] { return Join("Cannot set ", name, " to ", value, " on ", path); });
        return;
    }
    success = true;
}

void ExtendedAttributes::Write(const std::string& path, const std::string& name, const std::string& value)
{
    bool success = false;
    Write(path, name, value, success);
    ThrowUnless(success, [&] { return Join("Cannot set ", name, " to ", value, " on ", path); });
}

void ExtendedAttributes::Remove(const std::string& path, const std::string& name, bool& success)
{
    if (::removexattr(path.c_str(), name.c_str()) == -1) {
        Fail(success, [&] { return Join("Cannot remove ", name, " on ", path); });
        return;
    }
    success = true;
}

void ExtendedAttributes::Remove(const std::string& path, const std::string& name)
{
    bool success = false;
    Remove(path, name, success);
    ThrowUnless(success, [&] { return Join("Cannot remove ", name, " on ", path); });
}

}  // namespace Corvane::File
