#pragma once

#include <span>
#include <string>

#include "chunkfile/Commands.h"

/// @file
/// The commands and their options. Parser, help and completion are made of these rows.
namespace Corvane::FileTool {

class Terminal;

struct CommandRow {
    unsigned bit;
    const char* name;
    const char* paths;  ///< `FILE`, `FILE...`, or `[FILE]` if none is needed. Null: the command has other arguments
    Exit (*run)(const Options& options, Terminal& terminal);
    const char* summary;
    const char* examples;
};

struct OptionRow {
    unsigned commands;     ///< bits of the commands that have it
    const char* names;     ///< `-q,--quiet`
    const char* argument;  ///< null for a switch; choices have bars between them
    const char* help;
    bool (*take)(Options& options, const std::string& text);  ///< false: the text is no value of this option
    bool required = false;
};

std::span<const CommandRow> CommandRows();
std::span<const OptionRow> OptionRows();

/// Names in a text such as `table|json|csv` or `-q,--quiet`.
std::vector<std::string> Split(const std::string& text, char separator);

/// The completion for bash.
std::string BashCompletion();

}  // namespace Corvane::FileTool
