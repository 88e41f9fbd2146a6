// The judge of names_fuzz.cpp: a program of its own, not instrumented, so that its limits are those of the C library's
// matcher. Each message on its standard input, a socket, is a pattern and a name. It answers with what the plug-in's
// matcher costs, then with what the C library's says, unless that ends it.
#include <sys/resource.h>
#include <sys/time.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "fuzz/names_judge.h"
#include "sampling/name_pattern.h"
#include "tests/support/pattern_model.h"

namespace {

const char* pattern;
const char* name;
MatchCost cost;
ucontext_t caller;
char stack[1 << 16];

void measure() {
    cost.nanoseconds = UINT32_MAX;
    for (int round = 0; round < 3; ++round) {
        const auto start = std::chrono::steady_clock::now();
        cost.matches = qos::matches(pattern, name);
        const std::chrono::nanoseconds taken = std::chrono::steady_clock::now() - start;
        cost.nanoseconds = std::min(cost.nanoseconds, static_cast<uint32_t>(taken.count()));
    }
}

void measureOnEmptyStack() {
    memset(stack, 0x5A, sizeof stack);
    ucontext_t callee;
    getcontext(&callee);
    callee.uc_stack.ss_sp = stack;
    callee.uc_stack.ss_size = sizeof stack;
    callee.uc_link = &caller;
    makecontext(&callee, measure, 0);
    swapcontext(&caller, &callee);
    const char* used = std::find_if(stack, stack + sizeof stack, [](char byte) { return byte != 0x5A; });
    cost.stackBytes = static_cast<uint32_t>(stack + sizeof stack - used);
}

// None with 0. SIGVTALRM ends the process.
void limitTime(int microseconds) {
    const itimerval limit = {{}, {0, microseconds}};
    setitimer(ITIMER_VIRTUAL, &limit, nullptr);
}

}  // namespace

int main() {
    const rlimit memory = {1 << 26, 1 << 26};
    setrlimit(RLIMIT_AS, &memory);
    char message[4096] = {};
    while (read(STDIN_FILENO, message, sizeof message - 2) > 0) {
        pattern = message;
        name = message + strlen(message) + 1;
        measureOnEmptyStack();
        limitTime(20000);
        if (write(STDIN_FILENO, &cost, sizeof cost) != sizeof cost) {
            return 1;
        }
        const char verdict = PatternModel(pattern).matches(name) ? 1 : 0;
        limitTime(0);
        if (write(STDIN_FILENO, &verdict, 1) != 1) {
            return 1;
        }
    }
    return 0;
}
