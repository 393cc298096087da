#pragma once

#include <array>
#include <csignal>

namespace Corvane::FileTool {

/// While it lives, Ctrl-C and other requests to end are counted, and do not end the program: a fresh file would
/// stay. Signals that are ignored stay ignored.
class Interrupts {
public:
    Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;
    ~Interrupts();

    static int Count();  ///< since the construction

    /// Ends the program as the last of these signals would have done.
    [[noreturn]] static void End();

private:
    std::array<struct sigaction, 5> before_ = {};
};

}  // namespace Corvane::FileTool
