#include "devhost/support/loop.h"

#include <event2/event.h>
#include <event2/thread.h>

#include <stdexcept>
#include <utility>

namespace host {

struct Loop::Watch::State {
    event* watched = nullptr;
    std::function<void()> callback;

    ~State() {
        if (watched != nullptr) {
            event_free(watched);
        }
    }
};

namespace {

timeval timevalOf(std::chrono::milliseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    return {.tv_sec = static_cast<time_t>(seconds.count()),
            .tv_usec = static_cast<suseconds_t>(std::chrono::microseconds(time - seconds).count())};
}

extern "C" void callBack(evutil_socket_t, short, void* callback) {
    // A copy: the callback may end its watch.
    const auto work = *static_cast<std::function<void()>*>(callback);
    work();
}

}  // namespace

Loop::Loop() {
    evthread_use_pthreads();
    base_ = event_base_new();
    wake_ = base_ == nullptr
                ? nullptr
                : event_new(
                      base_, -1, EV_PERSIST,
                      [](evutil_socket_t, short, void* loop) { static_cast<Loop*>(loop)->runPosted(); }, this);
    if (wake_ == nullptr) {
        throw std::runtime_error("cannot make an event loop");
    }
    event_add(wake_, nullptr);
}

Loop::~Loop() {
    posted_.clear();
    event_free(wake_);
    event_base_free(base_);
}

void Loop::run() {
    event_base_loop(base_, EVLOOP_NO_EXIT_ON_EMPTY);
}

void Loop::stop() {
    event_base_loopbreak(base_);
}

void Loop::post(std::function<void()> work) {
    {
        const std::scoped_lock lock(mutex_);
        posted_.push_back(std::move(work));
    }
    event_active(wake_, 0, 0);
}

// What is posted meanwhile waits for the next turn, so that files and times have theirs.
void Loop::runPosted() {
    std::deque<std::function<void()>> work;
    {
        const std::scoped_lock lock(mutex_);
        work.swap(posted_);
    }
    for (const auto& each : work) {
        each();
    }
}

Loop::Watch::Watch() = default;
Loop::Watch::Watch(Watch&&) noexcept = default;
Loop::Watch& Loop::Watch::operator=(Watch&&) noexcept = default;
Loop::Watch::~Watch() = default;

void Loop::Watch::start(std::chrono::milliseconds after) {
    const timeval time = timevalOf(after);
    event_add(state_->watched, &time);
}

void Loop::Watch::cancel() {
    if (state_) {
        event_del(state_->watched);
    }
}

Loop::Watch Loop::watch(int file, short what, std::function<void()> callback) {
    Watch watch;
    watch.state_ = std::make_unique<Watch::State>();
    watch.state_->callback = std::move(callback);
    watch.state_->watched = event_new(base_, file, what, callBack, &watch.state_->callback);
    if (watch.state_->watched == nullptr) {
        throw std::runtime_error("cannot watch for an event");
    }
    if ((what & EV_TIMEOUT) == 0) {
        event_add(watch.state_->watched, nullptr);
    }
    return watch;
}

Loop::Watch Loop::onReadable(int file, std::function<void()> callback) {
    return watch(file, EV_READ | EV_PERSIST, std::move(callback));
}

Loop::Watch Loop::onSignal(int number, std::function<void()> callback) {
    return watch(number, EV_SIGNAL | EV_PERSIST, std::move(callback));
}

Loop::Watch Loop::timer(std::function<void()> callback) {
    return watch(-1, EV_TIMEOUT, std::move(callback));
}

}  // namespace host
