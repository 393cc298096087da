// chunkfile attr: extended attributes of any file.
#include <array>
#include <cerrno>
#include <cstring>

#include "Corvane/File/ExtendedAttributes.h"
#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

namespace {

using File::ExtendedAttributes;

struct Arguments {
    const char* action;
    bool name;
    bool value;
};
constexpr std::array<Arguments, 4> kActions = {
    {{"list", false, false}, {"get", true, false}, {"set", true, true}, {"remove", true, false}}};

// Raw for programs. A terminal gets a line of printable characters.
void WriteValue(Terminal& terminal, const std::string& value)
{
    terminal.Write(terminal.IsTerminal() ? Terminal::Escaped(value) + "\n" : value);
}

// The library's log entry has the system's reason; errno still has it where logging leaves it alone.
bool Carry(const std::string& path, const AttributeOptions& attribute, Terminal& terminal)
{
    bool done = false;
    errno = 0;
    if (attribute.action == "list") {
        for (const std::string& name : ExtendedAttributes::List(path, done)) {
            terminal.Write(Terminal::Escaped(name) + "\n");
        }
    } else if (attribute.action == "get") {
        const std::string value = ExtendedAttributes::Read(path, attribute.name, done);
        WriteValue(terminal, done ? value : "");
    } else if (attribute.action == "set") {
        ExtendedAttributes::Write(path, attribute.name, attribute.value.value_or(""), done);
    } else {
        ExtendedAttributes::Remove(path, attribute.name, done);
    }
    return done;
}

}  // namespace

Exit Attr(const Options& options, Terminal& terminal)
{
    const AttributeOptions& attribute = options.attribute;
    for (const Arguments& known : kActions) {
        if (attribute.action == known.action &&
            (known.name == attribute.name.empty() || known.value != attribute.value.has_value())) {
            terminal.Error("attr " + attribute.action + " takes PATH" + (known.name ? " NAME" : "") +
                           (known.value ? " VALUE" : ""));
            return Exit::Usage;
        }
    }
    const std::string& path = attribute.path;
    if (Carry(path, attribute, terminal)) {
        return Exit::Fine;
    }
    const std::string reason = errno == 0 ? "failed" : std::strerror(errno);  // NOLINT(concurrency-mt-unsafe)
    terminal.Error(
        ErrorText(path, attribute.action + (attribute.name.empty() ? "" : " " + attribute.name) + ": " + reason));
    return Exit::CouldNot;
}

}  // namespace Corvane::FileTool
