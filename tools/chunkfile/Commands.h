#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// @file
/// What the parts of the tool share. Run (Parser.cpp) turns arguments into Options and calls one command. Each command
/// has a source of its own: it takes the options and the terminal, writes results to stdout through the terminal and
/// errors to stderr, and returns an exit code. No command changes a chunk file.
///
/// - **Errors**: A command reports what it meets in one file (Terminal::Error), goes on with the next file, and returns
///   the gravest code. Only an exception that is no std::runtime_error, such as std::bad_alloc, may leave it.
/// - **Input**: Commands open files by Input (Input.h), which spools standard input and refuses folders.
/// - **Output**: WriteChunks (Output.h) writes new files, each proved before it gets its name.
/// - **Records**: Walk (Walk.h) gives the records of a file, and after damage those that count as the file's.
namespace Corvane::FileTool {

class Terminal;

/// Exit codes.
enum class Exit {
    Fine = 0,
    CouldNot = 1,  ///< a file could not be opened or read
    Usage = 2,
    Found = 3  ///< done, but damage, loss or unknown records; with --strict also warnings
};

/// The one that counts of two files' codes: CouldNot, then Found.
Exit Graver(Exit left, Exit right);

enum class Format { Table, Json, Csv, Ndjson, Raw };

enum class When { Auto, Always, Never };

/// What happens to a record whose time an earlier one has.
enum class OnEqualTime { Stop, Skip, Shift };

struct IndexRange {
    std::uint64_t begin = 0;
    std::uint64_t end = UINT64_MAX;  ///< not included
};

/// The words of `chunkfile attr`.
struct AttributeOptions {
    std::string action;  ///< list, get, set or remove
    std::string path;
    std::string name;
    std::optional<std::string> value;
};

struct ImportOptions {
    std::optional<std::string> time;  ///< --time COLUMN|POINTER|now
    std::int64_t timeUnit = 0;        ///< --time-unit, in nanoseconds; 0: none
    std::string timeUnitName;
    std::optional<std::string> rows;  ///< --rows POINTER
    bool dropTime = false;
    bool skipBad = false;
};

/// The options of all commands; each uses its own.
struct Options {
    std::vector<std::string> paths;  ///< `-` is standard input
    Format format = Format::Table;
    When color = When::Auto;
    bool quiet = false;
    bool verbose = false;

    bool countFields = false;              ///< info --fields
    std::vector<std::string> fields;       ///< cat and copy --fields a,b
    std::optional<std::string> from;       ///< --from, as written
    std::optional<std::string> to;         ///< --to, as written
    IndexRange index;                      ///< --index
    std::uint64_t limit = UINT64_MAX;      ///< --limit
    bool scan = false;                     ///< --scan
    bool strings = false;                  ///< cat --strings
    bool strict = false;                   ///< check --strict
    std::optional<std::uint64_t> maxSize;  ///< --max-size; nothing or 0: unbounded
    AttributeOptions attribute;

    // recover, copy and import; the first and the last also of view
    std::string output;                  ///< -o
    std::uint64_t splitBytes = 0;        ///< --split 64MiB; 0: no limit
    std::uint64_t splitNanoseconds = 0;  ///< --split 10min; 0: no limit
    OnEqualTime onEqualTime = OnEqualTime::Stop;
    bool dryRun = false;    ///< --dry-run
    bool force = false;     ///< --force
    bool sort = false;      ///< copy --sort
    bool doubtful = false;  ///< recover --doubtful
    ImportOptions import;
};

Exit Info(const Options& options, Terminal& terminal);     // Info.cpp
Exit Check(const Options& options, Terminal& terminal);    // Check.cpp
Exit List(const Options& options, Terminal& terminal);     // List.cpp
Exit Cat(const Options& options, Terminal& terminal);      // Cat.cpp
Exit Attr(const Options& options, Terminal& terminal);     // Attr.cpp
Exit Recover(const Options& options, Terminal& terminal);  // Recover.cpp
Exit Copy(const Options& options, Terminal& terminal);     // Copy.cpp
Exit Import(const Options& options, Terminal& terminal);   // Import.cpp
Exit View(const Options& options, Terminal& terminal);     // View.cpp

/// The program: parses the arguments, runs a command, and returns its exit code.
int RunTool(int count, char** arguments);  // Parser.cpp

/// The text of an error: `FILE: TEXT`, or `FILE: byte 409084 (record 99): TEXT`. The terminal adds `chunkfile: `.
std::string ErrorText(const std::string& file, const std::string& text);
std::string ErrorText(const std::string& file, std::uint64_t position, std::uint64_t record, const std::string& text);

/// A number with its word: `1 record`, `2 records`.
std::string Number(std::uint64_t number, const char* one, const char* many);
std::string Records(std::uint64_t number);
std::string Bytes(std::uint64_t number);

}  // namespace Corvane::FileTool
