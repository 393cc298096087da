#pragma once

#include <set>
#include <string>

namespace Corvane::File {

// Extended attributes of files: read, list, write and remove, each failure logged.
//
// Every operation comes twice. The form with `success` sets it to true or false and never throws for a failed system
// call; the form without throws std::runtime_error instead. No error is treated specially and nothing is retried: an
// attribute that is not there, even one to be removed, is a failure like any other.
//
// Arguments  A name is complete, with its prefix ("user."), and is handed to the system as it is, like a path, up to
//            its first zero byte. A value is any bytes; its length is the attribute's size. Paths follow symbolic
//            links. A descriptor is used as given, and never closed.
// Disk       Read and List make two system calls (size, then content), Write and Remove one.
// Owns       Nothing; nothing is kept between calls.
// Errors     A failure is logged at level 10, with the system's reason; the throwing form then logs its own text, which
//            it throws too, at level 40. The texts stand at the operations, the second behind "throws". Exceptions of
//            the allocator and the logger pass through.
// Threads    Any number of calls at once. Another process that changes the attribute between the two calls of Read or
//            List is not kept out; what happens then stands at Read and List.
// Records    Through LoggingManager::GetLogger("ExtendedAttributes"), looked up for each level query and each record.
class ExtendedAttributes {
public:
    explicit ExtendedAttributes() = delete;  // explicit: or braces would still make one in C++17

    // The value of an attribute, zero bytes included.
    //   "Cannot get size for xattr <name> on fd <fd>: <reason>"   the first call failed; returns an empty value
    //   "Cannot get value for xattr <name> on fd <fd>: <reason>"  the second failed, among others because the value
    //       grew; what is returned is as long as the value was, and its bytes mean nothing
    //   throws "Cannot get value of xattr <name> on fd <fd>"
    // By path the texts say " of <path>" in place of " on fd <fd>".
    // A value that shrank between the calls keeps its old length, filled up with zero bytes; one that was empty then
    // is returned empty, even if it has been filled since.
    // `success` is true from the start until a failure has been logged.
    static std::string Read(int fd, const std::string& name, bool& success);
    static std::string Read(int fd, const std::string& name);
    static std::string Read(const std::string& path, const std::string& name, bool& success);
    static std::string Read(const std::string& path, const std::string& name);

    // The names of all attributes that the system shows to the caller, with their prefixes, in byte order.
    //   "Cannot get xattr list size for <path>: <reason>"  the first call failed
    //   "Cannot get xattr list for <path>: <reason>"       the second failed, among others because the list grew
    //   throws "Cannot get xattr list for <path>"
    // Returns the empty set on failure. Of a list that shrank between the calls, what there still is; of one that was
    // empty and has been filled, nothing.
    // `success` is true from the start until a failure has been logged.
    static std::set<std::string> List(const std::string& path, bool& success);
    static std::set<std::string> List(const std::string& path);

    // Sets an attribute to all bytes of the value: creates it, or replaces what it was.
    //   "Cannot set <name> to <value> on <fd>: <reason>"   the value whole, its bytes as they are
    //   throws "Cannot set <name> to <value> on <fd>"
    // By path the texts name the path in place of the descriptor.
    // `success` is set once, when the outcome is known and a failure logged.
    static void Write(int fd, const std::string& name, const std::string& value, bool& success);
    static void Write(int fd, const std::string& name, const std::string& value);
    static void Write(const std::string& path, const std::string& name, const std::string& value, bool& success);
    static void Write(const std::string& path, const std::string& name, const std::string& value);

    // Deletes an attribute.
    //   "Cannot remove <name> on <path>: <reason>"
    //   throws "Cannot remove <name> on <path>"
    // `success` is set once, when the outcome is known and a failure logged.
    static void Remove(const std::string& path, const std::string& name, bool& success);
    static void Remove(const std::string& path, const std::string& name);
};

}  // namespace Corvane::File
