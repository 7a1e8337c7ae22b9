#include "script.h"

#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "scripted_platform.h"

namespace scripted {
namespace {

struct Plan {
    int first = 0;
    bool forGood = false;
    Fault fault;
};

struct CallState {
    int count = 0;
    std::optional<Plan> plan;
    std::optional<std::string> exception;
};

std::mutex g_mutex;  // guards g_calls
std::map<std::string, CallState> g_calls;

std::optional<Fault> count(const char* call) {
    const std::lock_guard lock(g_mutex);
    CallState& state = g_calls[call];
    ++state.count;
    if (state.exception) {
        const std::string what = *state.exception;
        state.exception.reset();
        throw std::runtime_error(what);
    }
    if (!state.plan || state.count < state.plan->first) {
        return std::nullopt;
    }
    const Fault fault = state.plan->fault;
    if (!state.plan->forGood) {
        state.plan.reset();
    }
    return fault;
}

void plan(const std::string& call, int invocation, bool forGood, const Fault& fault) {
    const std::lock_guard lock(g_mutex);
    CallState& state = g_calls[call];
    state.plan = Plan{state.count + invocation, forGood, fault};
}

}  // namespace

void reset() {
    {
        const std::lock_guard lock(g_mutex);
        g_calls.clear();
    }
    resetVideo();
    resetInference();
    resetParameters();
    resetEvents();
    resetOverlay();
}

int calls(const std::string& call) {
    const std::lock_guard lock(g_mutex);
    return g_calls[call].count;
}

void failAt(const std::string& call, int invocation, const Fault& fault) {
    plan(call, invocation, false, fault);
}

void failFrom(const std::string& call, int invocation, const Fault& fault) {
    plan(call, invocation, true, fault);
}

void throwNext(const std::string& call, const std::string& what) {
    const std::lock_guard lock(g_mutex);
    g_calls[call].exception = what;
}

void heal(const std::string& call) {
    const std::lock_guard lock(g_mutex);
    g_calls[call].plan.reset();
}

bool refuse(GQuark domain, int code, const std::string& message, GError** error) {
    if (!message.empty()) {
        g_set_error_literal(error, domain, code, message.c_str());
    }
    return true;
}

bool refuse(larodErrorCode code, const std::string& message, larodError** error) {
    if (error != nullptr && *error == nullptr && !message.empty()) {
        *error = new larodError{code, strdup(message.c_str())};
    }
    return true;
}

bool failsNow(const char* call, GQuark domain, GError** error) {
    const std::optional<Fault> fault = count(call);
    return fault && refuse(domain, fault->code, fault->message, error);
}

bool failsNow(const char* call, larodError** error) {
    const std::optional<Fault> fault = count(call);
    return fault && refuse(static_cast<larodErrorCode>(fault->code), fault->message, error);
}

bool failsNow(const char* call) {
    return count(call).has_value();
}

}  // namespace scripted
