#include "devhost/agent/feed_runner.h"

#include <fmt/format.h>

#include <csignal>
#include <exception>
#include <utility>

#include "devhost/qosdb/feed_mark.h"
#include "devhost/support/trouble.h"

namespace agent {

namespace {

constexpr std::chrono::milliseconds kLook{20};
constexpr int kMostLooks = 250;
constexpr std::chrono::milliseconds kEnd{2000};

}  // namespace

FeedRunner::FeedRunner(host::Loop& loop, Children& children, FeedOrder order, std::function<void()> ready)
    : children_(children),
      order_(std::move(order)),
      ready_(std::move(ready)),
      again_(loop.timer([this] { start(); })),
      look_(loop.timer([this] { lookForRound(); })),
      last_(loop.timer([this] { finish(); })) {
    start();
    look_.start(kLook);
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
                ++restarts_;
                host::report(fmt::format("the feed {}, and is started again", ended));
                again_.start(backoff_.next());
            });
    } catch (const std::exception& error) {
        ++restarts_;
        host::report(error.what());
        again_.start(backoff_.next());
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
