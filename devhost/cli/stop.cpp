#include "devhost/cli/stop.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

namespace host {

namespace {

std::atomic<bool> stopFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free);
// A byte stays in this pipe once the stop is requested, so that a wait that begins after the signal ends as well.
int stopPipe[2] = {-1, -1};

extern "C" void requestStop(int) {
    const int savedErrno = errno;
    if (!stopFlag.exchange(true)) {
        [[maybe_unused]] const ssize_t written = write(stopPipe[1], "", 1);
    }
    errno = savedErrno;
}

}  // namespace

void catchStopSignals() {
    if (pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot prepare for signals");
    }
    struct sigaction action = {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaction(number, &action, nullptr);
    }
}

bool stopRequested() {
    return stopFlag;
}

bool waitUntil(std::chrono::steady_clock::time_point time) {
    using std::chrono::milliseconds;
    while (!stopRequested()) {
        const auto left = std::chrono::ceil<milliseconds>(time - std::chrono::steady_clock::now()).count();
        if (left <= 0) {
            break;
        }
        pollfd waiting = {.fd = stopPipe[0], .events = POLLIN, .revents = 0};
        constexpr auto kLongestPoll = milliseconds(std::chrono::hours(24)).count();
        poll(&waiting, 1, static_cast<int>(left < kLongestPoll ? left : kLongestPoll));
    }
    return stopRequested();
}

}  // namespace host
