#include "chunkfile/Tables.h"

namespace Corvane::FileTool {

namespace {

// A branch of `case`: what bash offers there. A colon stands for files, a space for nothing.
std::string Branch(const std::string& pattern, const std::string& words)
{
    return "        " + pattern + ") words='" + words + "' ;;\n";
}

std::string Spaced(const std::string& names, char separator)
{
    std::string spaced;
    for (const std::string& name : Split(names, separator)) {
        spaced += (spaced.empty() ? "" : " ") + name;
    }
    return spaced;
}

// What follows an option: one of its choices, a file, or a value that only the user knows.
std::string ArgumentBranch(const std::string& command, const OptionRow& option)
{
    const std::string argument = option.argument;
    std::string pattern;
    for (const std::string& name : Split(option.names, ',')) {
        pattern.append(pattern.empty() ? "" : " | ").append(command).append(":").append(name);
    }
    if (argument.find('|') != std::string::npos) {
        return Branch(pattern, Spaced(argument, '|'));
    }
    const bool isFile = argument.starts_with("OUT") || argument.starts_with("PAGE");
    return Branch(pattern, isFile ? ":" : " ");
}

constexpr const char* kBegin =
    R"(# Completion of chunkfile for bash, made of the parser's tables: chunkfile --bash-completion

_chunkfile() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words=
    [ "$COMP_CWORD" -gt 1 ] || command=
    [ "$word" != = ] || word=  # --format=
    [ "$before" != = ] || before=${COMP_WORDS[COMP_CWORD - 2]}  # --format=j
    [[ " ${COMP_WORDS[*]:0:COMP_CWORD} " != *" -- "* ]] || words=:
    [[ -n $words || $word == -* ]] || case $command:$before in
)";

constexpr const char* kMiddle = R"(        *) [ -z "$command" ] || words=: ;;  # files
    esac
    [ -n "$words" ] || case $command in
)";

constexpr const char* kEnd = R"(    esac
    if [ "$words" = : ]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    fi
}
complete -o filenames -F _chunkfile chunkfile
)";

}  // namespace

std::string BashCompletion()
{
    std::string arguments;
    std::string options;
    std::string commands;
    for (const CommandRow& command : CommandRows()) {
        const std::string name = command.name;
        std::string words;
        for (const OptionRow& option : OptionRows()) {
            if ((option.commands & command.bit) == 0) {
                continue;
            }
            words += Spaced(option.names, ',') + " ";
            arguments += option.argument == nullptr ? "" : ArgumentBranch(name, option);
        }
        options += Branch(name, words + "--help --version");
        commands += name + " ";
    }
    arguments += Branch("attr:attr", "list get set remove");
    return kBegin + arguments + kMiddle + options + Branch("*", commands + "--help --version") + kEnd;
}

}  // namespace Corvane::FileTool
