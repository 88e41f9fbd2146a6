#include "devhost/agent/feed_runner.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <exception>
#include <optional>
#include <utility>

#include "devhost/qosdb/feed_mark.h"
#include "devhost/support/duration.h"
#include "devhost/support/trouble.h"

namespace agent {

namespace {

constexpr std::chrono::milliseconds kLook{20};
constexpr int kMostLooks = 250;
constexpr std::chrono::milliseconds kEnd{2000};
constexpr std::chrono::milliseconds kLookForLife{2000};
constexpr std::chrono::milliseconds kLeastPatience{10000};

// None when the system does not tell.
std::optional<std::chrono::nanoseconds> processorTimeOf(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        return std::nullopt;
    }
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

FeedRunner::FeedRunner(host::Loop& loop, Children& children, FeedOrder order, std::function<void()> ready)
    : children_(children),
      order_(std::move(order)),
      ready_(std::move(ready)),
      again_(loop.timer([this] { start(); })),
      look_(loop.timer([this] { lookForRound(); })),
      life_(loop.timer([this] { lookForLife(); })),
      last_(loop.timer([this] { finish(); })) {
    start();
    look_.start(kLook);
    life_.start(kLookForLife);
}

void FeedRunner::start() {
    backoff_.began();
    std::string how;
    try {
        child_ = children_.start(
            FeedOrder::kArgument, order_.bytes(), [](std::string_view) {},
            [this](const std::string& ended) {
                child_.reset();
                if (done_) {
                    finish();
                    return;
                }
                startAgain(fmt::format("the feed {}, and is started again", ended));
            });
        worked_ = {};
        silence_ = {};
    } catch (const std::exception& error) {
        startAgain(error.what());
    }
}

void FeedRunner::startAgain(const std::string& why) {
    ++restarts_;
    host::report(why);
    again_.start(backoff_.next());
}

// Looks are counted rather than the time between them, in which both may have been stopped.
void FeedRunner::lookForLife() {
    life_.start(kLookForLife);
    if (!child_) {
        return;
    }
    const auto worked = processorTimeOf(child_->process());
    silence_ = worked == worked_ ? silence_ + kLookForLife : std::chrono::milliseconds{};
    worked_ = worked.value_or(worked_);
    if (silence_ >= std::max(3 * order_.feed.every, kLeastPatience)) {
        child_.reset();  // which kills it
        startAgain(fmt::format("the feed has done nothing for {}, and is ended and started again",
                               host::durationText(silence_)));
    }
}

void FeedRunner::lookForRound() {
    const auto mark = child_ ? qosdb::readFeedMark(order_.database) : std::nullopt;
    if ((mark && mark->process == static_cast<uint64_t>(child_->process())) || ++looks_ == kMostLooks) {
        std::exchange(ready_, {})();
    } else {
        look_.start(kLook);
    }
}

void FeedRunner::end(std::function<void()> done) {
    done_ = std::move(done);
    again_.cancel();
    look_.cancel();
    life_.cancel();
    if (!child_) {
        finish();
        return;
    }
    child_->signal(SIGTERM);
    last_.start(kEnd);
}

void FeedRunner::finish() {
    child_.reset();
    last_.cancel();
    if (const auto done = std::exchange(done_, {})) {
        done();
    }
}

}  // namespace agent
