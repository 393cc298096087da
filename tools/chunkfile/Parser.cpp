// The command line. Only this source includes CLI11.
#include <fcntl.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <iostream>
#include <new>
#include <stdexcept>

#include "chunkfile/Glue.h"
#include "chunkfile/Tables.h"
#include "chunkfile/Terminal.h"

namespace Corvane::FileTool {

namespace {

// If a list of files began before `--`, CLI11 takes words after it for options. A NUL in front hides their dash until
// the word is stored; no argument can have one.
std::vector<std::string> WordsOf(int count, char** arguments)
{
    std::vector<std::string> words(arguments + 1, arguments + count);
    if (const auto mark = std::ranges::find(words, "--"); mark != words.end()) {
        std::for_each(words.erase(mark), words.end(), [](std::string& word) { word.insert(0, 1, '\0'); });
    }
    std::ranges::reverse(words);  // as CLI11 wants them
    return words;
}

std::string Shown(const std::string& word)
{
    return word.starts_with('\0') ? word.substr(1) : word;
}

void AddOption(CLI::App& command, const OptionRow& row, Options& options)
{
    if (row.argument == nullptr) {
        command.add_flag_callback(row.names, [&] { row.take(options, {}); }, row.help);
        return;
    }
    const std::vector<std::string> choices = Split(row.argument, '|');
    const auto take = [&row, &options, choices](const std::string& text) {
        const bool known = choices.size() == 1 || std::find(choices.begin(), choices.end(), text) != choices.end();
        if (!known) {
            throw CLI::ValidationError(row.names, text + " is none of " + row.argument);
        }
        if (!row.take(options, text)) {
            throw CLI::ValidationError(row.names, "cannot understand " + text);
        }
    };
    command.add_option_function<std::string>(row.names, take, row.help)
        ->type_name(row.argument)
        ->required(row.required);
}

void AddAttributeArguments(CLI::App& command, Options& options)
{
    AttributeOptions& attribute = options.attribute;
    const auto known = [](const std::string& action) -> std::string {
        const bool is = action == "list" || action == "get" || action == "set" || action == "remove";
        return is ? "" : action + " is none of list|get|set|remove";
    };
    command.add_option("ACTION", attribute.action, "list, get, set or remove")->required()->check(known);
    command.add_option("PATH", attribute.path, "The file")->required();
    command.add_option("NAME", attribute.name, "The attribute, with its namespace: user.x");
    command.add_option("VALUE", attribute.value, "What set stores");
}

void AddVersion(CLI::App& app)
{
    const std::string platform = Glue::PlatformName();
    app.set_version_flag("--version",
                         "chunkfile " CORVANE_FILE_VERSION + (platform.empty() ? "" : " (" + platform + ")"),
                         "Print the version");
}

void AddCommand(CLI::App& app, const CommandRow& row, Options& options)
{
    CLI::App& command = *app.add_subcommand(row.name, row.summary);
    AddVersion(command);
    command.group("Commands");
    command.footer(std::string("Examples:\n") + row.examples);
    if (row.paths == nullptr) {
        AddAttributeArguments(command, options);
    } else {
        const std::string words = row.paths;
        const bool many = words.ends_with("...");
        const bool optional = words.starts_with("[");
        const std::string name = words.substr(optional ? 1 : 0, words.find_first_of(".]") - (optional ? 1 : 0));
        command.add_option(name, options.paths, "`-` is standard input")
            ->required(!optional)
            ->expected(1, many ? CLI::detail::expected_max_vector_size : 1);
    }
    for (CLI::Option* const argument :
         command.get_options([](const CLI::Option* it) { return it->get_positional(); })) {
        argument->type_name("")->transform(Shown);
    }
    for (const OptionRow& option : OptionRows()) {
        if ((option.commands & row.bit) != 0) {
            AddOption(command, option, options);
        }
    }
}

void Describe(CLI::App& app)
{
    app.name("chunkfile");
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "Print this help");
    AddVersion(app);
    app.add_flag_callback("--bash-completion", [] { throw CLI::Success(); })->group("");
    app.footer(
        "Exit codes: 0 fine; 1 could not; 2 wrong usage; 3 done, but damage, loss or unknown records.\n"
        "Each command has examples: chunkfile COMMAND --help\n");
    const auto formatter = app.get_formatter();
    formatter->column_width(28);
    for (const auto& [label, text] :
         {std::pair("REQUIRED", ""), std::pair("SUBCOMMAND", "COMMAND"), std::pair("Positionals", "Arguments")}) {
        formatter->label(label, text);
    }
}

// What is wrong. CLI11 asks for what is missing before it says what it does not know.
std::string ReasonOf(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<std::string> rest = app.remaining(true);
    const auto option = std::ranges::find_if(rest, [](const std::string& word) { return word.starts_with('-'); });
    const auto is = [&error](CLI::ExitCodes code) { return error.get_exit_code() == static_cast<int>(code); };
    const bool required = is(CLI::ExitCodes::RequiredError);
    if ((required || is(CLI::ExitCodes::ExtrasError)) && option != rest.end()) {
        return "unexpected option " + *option;
    }
    if (required && app.get_subcommands().empty()) {
        return rest.empty() ? "COMMAND is required" : rest.front() + ": no such command";
    }
    std::string reason = error.what();
    for (const auto& [theirs, ours] :
         {std::pair<std::string, const char*>(": At Most 1 required but received ", ": takes one, not "),
          std::pair<std::string, const char*>(": 1 required ", ": ")}) {
        const std::size_t at = reason.find(theirs);
        if (at != std::string::npos) {
            reason.replace(at, theirs.size(), ours);
        }
    }
    return reason;
}

// Prints help, version, completion, or what is wrong.
Exit Explain(const CLI::App& app, const CLI::ParseError& error)
{
    if (error.get_name() == "Success") {
        std::cout << BashCompletion();
        return Exit::Fine;
    }
    if (error.get_exit_code() == 0) {
        return static_cast<Exit>(app.exit(error));
    }
    const auto chosen = app.get_subcommands();
    const std::string command = chosen.empty() ? "chunkfile" : "chunkfile " + chosen.front()->get_name();
    std::cerr << "chunkfile: " << Terminal::Escaped(ReasonOf(app, error)) << "\nTry: " << command << " --help\n";
    return Exit::Usage;
}

// A standard descriptor that the caller closed stays unusable: otherwise the next file that is opened gets its number.
void KeepClosed()
{
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) == -1) {
            ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

// Log entries go to stderr with -v, and nowhere without it.
void DirectLog(bool verbose)
{
    Glue::SendLogTo([verbose](std::int32_t level, const std::string& message) {
        if (verbose) {
            std::cerr << "chunkfile: log entry, level " << level << ": " << Terminal::Escaped(message) << '\n';
        }
    });
}

Exit RunCommand(const CommandRow& row, const Options& options)
{
    Terminal terminal(options);
    try {
        if (std::ranges::count(options.paths, "-") > 1) {
            throw std::invalid_argument("standard input can be read only once");
        }
        const Exit code = row.run(options, terminal);
        terminal.Flush();
        return code;
    } catch (const std::bad_alloc&) {
        terminal.Error("out of memory");
    } catch (const std::invalid_argument& error) {
        terminal.Error(error.what());
        return Exit::Usage;
    } catch (const std::exception& error) {
        terminal.Error(error.what());
    }
    return Exit::CouldNot;
}

}  // namespace

int RunTool(int count, char** arguments)
{
    KeepClosed();
    std::setlocale(LC_CTYPE, "");   // NOLINT(concurrency-mt-unsafe): this program has one thread
    std::signal(SIGPIPE, SIG_DFL);  // a reader that goes away ends the program, whatever its parent has set
    std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow further is an error of the call
    CLI::App app("Looks into chunk files, judges, rescues and converts them");
    Options options;
    Describe(app);
    for (const CommandRow& row : CommandRows()) {
        AddCommand(app, row, options);
    }
    try {
        app.parse(WordsOf(count, arguments));
    } catch (const CLI::ParseError& error) {
        return static_cast<int>(Explain(app, error));
    }
    DirectLog(options.verbose);
    for (const CommandRow& row : CommandRows()) {
        if (app.got_subcommand(row.name)) {
            return static_cast<int>(RunCommand(row, options));
        }
    }
    return static_cast<int>(Exit::Usage);
}

}  // namespace Corvane::FileTool
