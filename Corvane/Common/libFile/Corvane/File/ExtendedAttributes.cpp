#include "Corvane/File/ExtendedAttributes.h"

#include <sys/xattr.h>

#include <algorithm>
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

// One record. The logger is looked up for the level and again for the record, so that a registry may change meanwhile.
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

// Reads a value with the two calls that every read takes. getValue is fgetxattr or getxattr of the target, textFor the
// failure's text for what could not be got.
template <typename GetValue, typename TextFor>
std::string ReadValue(const GetValue& getValue, const TextFor& textFor, bool& success,
                      const source_location& where = source_location::current())
{
    success = true;
    std::string value;
    const ssize_t size = getValue(nullptr, 0);
    if (size < 0) {
        Fail(success, [&] { return textFor("size"); }, where);
        return value;
    }
    value.resize(static_cast<std::size_t>(size));
    if (getValue(value.data(), value.size()) < 0) {
        Fail(success, [&] { return textFor("value"); }, where);
    }
    return value;
}

// The names in a list of zero-terminated ones; what has no terminator is no name.
std::set<std::string> SplitNames(std::string_view list)
{
    std::set<std::string> names;
    for (std::size_t end = list.find('\0'); end != std::string_view::npos; end = list.find('\0')) {
        names.emplace(list.substr(0, end));
        list.remove_prefix(end + 1);
    }
    return names;
}

}  // namespace

std::string ExtendedAttributes::Read(int fd, const std::string& name, bool& success)
{
    const auto get = [&](char* value, std::size_t size) { return ::fgetxattr(fd, name.c_str(), value, size); };
    const auto text = [&](auto what) { return Join("Cannot get ", what, " for xattr ", name, " on fd ", fd); };
    return ReadValue(get, text, success);
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
    const auto text = [&](auto what) { return Join("Cannot get ", what, " for xattr ", name, " of ", path); };
    return ReadValue(get, text, success);
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
    // Asked with size 0, the system reports the length of names that it did not store.
    return SplitNames({list.data(), std::min(list.size(), static_cast<std::size_t>(used))});
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
