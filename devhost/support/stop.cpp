#include "devhost/support/stop.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace host {

namespace {

std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);
// A byte stays in this pipe once the stop is requested, so that a wait that begins after the signal ends as well.
int stopPipe[2] = {-1, -1};

// Never destroyed: the thread that forces the stop may run while the process exits.
struct LeftWork {
    std::mutex mutex;
    std::list<std::function<void()>> list;
};
LeftWork& leftWork() {
    static auto* work = new LeftWork;
    return *work;
}

extern "C" void requestStop(int number) {
    const int savedErrno = errno;
    int none = 0;
    if (stopSignal.compare_exchange_strong(none, number)) {
        [[maybe_unused]] const ssize_t written = write(stopPipe[1], "", 1);
    }
    errno = savedErrno;
}

void forceStop() {
    pollfd waiting = {.fd = stopPipe[0], .events = POLLIN, .revents = 0};
    while (poll(&waiting, 1, -1) != 1) {
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    const std::scoped_lock lock(leftWork().mutex);
    for (const auto& work : leftWork().list) {
        work();
    }
    _exit(stopCode());
}

}  // namespace

void catchStopSignals() {
    if (pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot prepare for signals");
    }
    struct sigaction action = {};
    action.sa_handler = requestStop;
    action.sa_flags = SA_RESTART;  // so that nothing is half written, and only forceStop() ends what does not return
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        if (number != SIGHUP || before.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
    std::thread(forceStop).detach();
}

bool stopRequested() {
    return stopSignal != 0;
}

int stopCode() {
    return 128 + stopSignal;
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

bool waitForInput(int file) {
    pollfd waiting[] = {{.fd = stopPipe[0], .events = POLLIN, .revents = 0},
                        {.fd = file, .events = POLLIN, .revents = 0}};
    while (poll(waiting, 2, -1) < 0 && errno == EINTR && !stopRequested()) {
    }
    return stopRequested();
}

AtForcedStop::AtForcedStop(std::function<void()> work) {
    const std::scoped_lock lock(leftWork().mutex);
    place_ = leftWork().list.insert(leftWork().list.end(), std::move(work));
}

AtForcedStop::~AtForcedStop() {
    const std::scoped_lock lock(leftWork().mutex);
    leftWork().list.erase(place_);
}

}  // namespace host
