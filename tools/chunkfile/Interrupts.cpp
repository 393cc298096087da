#include "chunkfile/Interrupts.h"

#include <array>
#include <cstdlib>

namespace Corvane::FileTool {

namespace {

constexpr std::array<int, 5> kSignals = {SIGINT, SIGHUP, SIGTERM, SIGQUIT, SIGPIPE};

volatile std::sig_atomic_t count = 0;
volatile std::sig_atomic_t last = 0;

void Note(int signal)
{
    count = count + 1;
    last = signal;
}

}  // namespace

// Without SA_RESTART: a blocked read returns.
Interrupts::Interrupts()
{
    count = 0;
    struct sigaction action = {};
    action.sa_handler = Note;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN) {
            ::sigaction(kSignals[i], &action, nullptr);
        }
    }
}

Interrupts::~Interrupts()
{
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], &before_[i], nullptr);
    }
}

int Interrupts::Count()
{
    return count;
}

void Interrupts::End()
{
    std::signal(last, SIG_DFL);
    std::raise(last);
    std::abort();
}

}  // namespace Corvane::FileTool
