#include "support/SystemCalls.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "support/Bookkeeping.h"
#include "support/Observe.h"

namespace support {

namespace {

struct Rule {
    std::string name;
    std::uint64_t nth;
    SystemCalls::Action action;
    bool persistently;
};

struct State {
    std::vector<SystemCall> calls;
    std::vector<Rule> rules;
    std::uint64_t fired = 0;
};

// Null while nobody observes this thread, and while an action or the bookkeeping makes calls of its own.
thread_local State* observed = nullptr;

class Unobserved {
public:
    Unobserved() : state_(std::exchange(observed, nullptr)) { bookkeeping = true; }
    Unobserved(const Unobserved&) = delete;
    Unobserved& operator=(const Unobserved&) = delete;
    ~Unobserved()
    {
        observed = state_;
        bookkeeping = false;
    }

    State& Get() const { return *state_; }

private:
    State* state_;
};

std::optional<std::int64_t> ActOn(State& state, const SystemCall& call)
{
    std::vector<SystemCalls::Action> actions;
    for (std::size_t i = 0; i < state.rules.size(); ++i) {
        Rule& rule = state.rules[i];
        if (rule.name != call.name || rule.nth-- != 0) {
            continue;
        }
        actions.push_back(rule.action);
        rule.nth = 0;
        if (!rule.persistently) {
            state.rules.erase(state.rules.begin() + static_cast<std::ptrdiff_t>(i--));
        }
    }
    for (const SystemCalls::Action& action : actions) {
        ++state.fired;
        if (const auto result = action(call)) {
            return result;
        }
    }
    return std::nullopt;
}

std::string Text(const char* text)
{
    return text != nullptr ? text : "";
}

SystemCall Copied(const CallDescription& call)
{
    return {.name = call.name,
            .fd = call.fd,
            .path = Text(call.path),
            .target = Text(call.target),
            .attribute = Text(call.attribute),
            .flags = call.flags,
            .mode = call.mode,
            .buffer = call.buffer,
            .size = call.size,
            .offset = call.offset};
}

SystemCalls::Action FailWith(int error)
{
    return [error](const SystemCall&) {
        errno = error;
        return -1;
    };
}

SystemCalls::Action ShortenTo(std::uint64_t size)
{
    return [size](const SystemCall& call) {
        const std::uint64_t count = std::min(size, call.size);
        if (call.name == "write") {
            return ::write(call.fd, call.buffer, count);
        }
        void* const buffer = const_cast<void*>(call.buffer);
        return call.name == "pread" ? ::pread(call.fd, buffer, count, call.offset) : ::read(call.fd, buffer, count);
    };
}

}  // namespace

std::int64_t Observe(const CallDescription& description, const std::function<std::int64_t()>& make)
{
    if (observed == nullptr) {
        return make();
    }
    int error = errno;
    std::int64_t result = 0;
    {
        const Unobserved guard;
        SystemCall call = Copied(description);
        errno = error;
        const std::optional<std::int64_t> chosen = ActOn(guard.Get(), call);
        result = chosen ? *chosen : make();
        error = errno;
        call.result = result;
        call.error = result == -1 ? error : 0;
        guard.Get().calls.push_back(std::move(call));
    }
    errno = error;
    return result;
}

SystemCalls::SystemCalls()
{
    observed = new State;
}

SystemCalls::~SystemCalls()
{
    delete std::exchange(observed, nullptr);
}

void SystemCalls::On(const std::string& name, std::uint64_t nth, Action action, bool persistently)
{
    observed->rules.push_back({name, nth, std::move(action), persistently});
}

void SystemCalls::OnEach(const std::string& name, Action action)
{
    On(name, 0, std::move(action), true);
}

void SystemCalls::Fail(const std::string& name, int error, std::uint64_t nth)
{
    On(name, nth, FailWith(error));
}

void SystemCalls::FailEach(const std::string& name, int error)
{
    OnEach(name, FailWith(error));
}

void SystemCalls::Shorten(const std::string& name, std::uint64_t size, std::uint64_t nth)
{
    On(name, nth, ShortenTo(size));
}

void SystemCalls::ShortenEach(const std::string& name, std::uint64_t size)
{
    OnEach(name, ShortenTo(size));
}

std::vector<SystemCall> SystemCalls::Calls() const
{
    return observed->calls;
}

std::vector<SystemCall> SystemCalls::Calls(const std::string& name) const
{
    std::vector<SystemCall> calls;
    std::copy_if(observed->calls.begin(), observed->calls.end(), std::back_inserter(calls),
                 [&](const SystemCall& call) { return call.name == name; });
    return calls;
}

Lines SystemCalls::Names() const
{
    Lines names;
    names.reserve(observed->calls.size());
    for (const SystemCall& call : observed->calls) {
        names.push_back(call.name);
    }
    return names;
}

std::uint64_t SystemCalls::Fired() const
{
    return observed->fired;
}

void SystemCalls::Clear()
{
    observed->calls.clear();
}

}  // namespace support
