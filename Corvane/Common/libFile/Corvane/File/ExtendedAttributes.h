#pragma once

#include <set>
#include <string>

namespace Corvane::File {

/// Reads, lists, writes and removes extended attributes of files, and logs each failure.
///
/// Every operation has two variants. The flag variant sets `success` to true or false, and never throws for a failed
/// system call. The throwing variant has no `success` and throws std::runtime_error instead. No error is special and
/// nothing is retried: to remove an attribute that is absent is a failure like any other.
///
/// - **Arguments**: A name is complete, with its prefix ("user."). Names and paths are handed to the system up to their
///   first zero byte. A value is any bytes; its length is the attribute's size. Paths follow symbolic links.
/// - **Disk**: Read and List make two system calls (size, then content), Write and Remove one.
/// - **Owns**: Nothing, and it keeps nothing between calls. It never closes a descriptor.
/// - **Errors**: A failure is logged at level 10, with the system's reason. The throwing variant then logs its own text
///   at level 40, and throws it. Exceptions of the allocator and the logger pass.
/// - **Threads**: Any number of calls at once. Another process may change the attribute between the two calls of Read
///   or List; they say what happens then.
/// - **Log**: `LoggingManager::GetLogger("ExtendedAttributes")`, looked up for its level, and again for each log entry.
class ExtendedAttributes {
public:
    explicit ExtendedAttributes() = delete;  // explicit, because braces would otherwise make one in C++17

    /// Returns the value of an attribute, zero bytes included. By path, the texts say ` of <path>` instead of
    /// ` on fd <fd>`.
    ///
    /// - level 10 `Cannot get size for xattr <name> on fd <fd>: <reason>`: the first call failed. Returns an empty
    ///   value.
    /// - level 10 `Cannot get value for xattr <name> on fd <fd>: <reason>`: the second call failed, for example because
    ///   the value grew. Returns as many bytes as the value had; they mean nothing.
    /// - level 40, and thrown: `Cannot get value of xattr <name> on fd <fd>`
    ///
    /// A value that shrank between the calls keeps its old length, filled up with zero bytes. A value that was empty at
    /// the first call comes back empty.
    ///
    /// `success` is true from the start until a failure has been logged.
    ///@{
    static std::string Read(int fd, const std::string& name, bool& success);
    static std::string Read(int fd, const std::string& name);
    static std::string Read(const std::string& path, const std::string& name, bool& success);
    static std::string Read(const std::string& path, const std::string& name);
    ///@}

    /// Returns the names of all attributes that the system shows to the caller, with their prefixes, in byte order.
    ///
    /// - level 10 `Cannot get xattr list size for <path>: <reason>`: the first call failed.
    /// - level 10 `Cannot get xattr list for <path>: <reason>`: the second call failed, for example because the list
    ///   grew.
    /// - level 40, and thrown: `Cannot get xattr list for <path>`
    ///
    /// Returns the empty set on failure. If the list shrank between the calls, returns the names that are left. If it
    /// was empty at the first call, returns none.
    ///
    /// `success` is true from the start until a failure has been logged.
    ///@{
    static std::set<std::string> List(const std::string& path, bool& success);
    static std::set<std::string> List(const std::string& path);
    ///@}

    /// Sets an attribute to all bytes of the value. Creates it, or replaces its value. By path, the texts name the path
    /// instead of the descriptor.
    ///
    /// - level 10 `Cannot set <name> to <value> on <fd>: <reason>`, the value whole and unescaped
    /// - level 40, and thrown: `Cannot set <name> to <value> on <fd>`
    ///
    /// `success` is set once, when the outcome is known and a failure is logged.
    ///@{
    static void Write(int fd, const std::string& name, const std::string& value, bool& success);
    static void Write(int fd, const std::string& name, const std::string& value);
    static void Write(const std::string& path, const std::string& name, const std::string& value, bool& success);
    static void Write(const std::string& path, const std::string& name, const std::string& value);
    ///@}

    /// Removes an attribute.
    ///
    /// - level 10 `Cannot remove <name> on <path>: <reason>`
    /// - level 40, and thrown: `Cannot remove <name> on <path>`
    ///
    /// `success` is set once, when the outcome is known and a failure is logged.
    ///@{
    static void Remove(const std::string& path, const std::string& name, bool& success);
    static void Remove(const std::string& path, const std::string& name);
    ///@}
};

}  // namespace Corvane::File
