#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/Files.h"

namespace support {

// What a run of the program gave.
struct Ran {
    int code;
    std::string out;
    std::string err;
};

// Runs the shell command in a folder of its own. It may use $CHUNKFILE and $MINIMAL, the tools of both platforms. An
// empty IFS keeps paths with spaces whole.
inline Ran RunShell(const std::string& folder, const std::string& command)
{
    const std::string out = folder + "/out";
    const std::string err = folder + "/err";
    const std::string line = "cd '" + folder +
                             "' && CHUNKFILE='" CHUNKFILE "' MINIMAL='" MINIMAL_CHUNKFILE "' LC_ALL=C sh -c 'IFS=; " +
                             command + "' >out 2>err";
    const int status = std::system(line.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe): the test's own command
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), ReadFile(out), ReadFile(err)};
}

}  // namespace support
