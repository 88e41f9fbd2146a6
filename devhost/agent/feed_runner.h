/*
 * The agent's feed: a child that is started anew whenever it ends or hangs. It hangs when it uses no processor time in
 * three of its rounds and 10 s: one that is only late, or cannot write, goes on and says so by itself.
 */
#ifndef DEVHOST_AGENT_FEED_RUNNER_H
#define DEVHOST_AGENT_FEED_RUNNER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "devhost/agent/children.h"
#include "devhost/agent/order.h"

namespace agent {

class FeedRunner {
  public:
    /* ready is called once, when the database has a round of this feed, or after 5 s without one. */
    FeedRunner(host::Loop& loop, Children& children, FeedOrder order, std::function<void()> ready);
    FeedRunner(const FeedRunner&) = delete;
    FeedRunner& operator=(const FeedRunner&) = delete;

    uint64_t restarts() const { return restarts_; }
    /* 0 when there is none at the moment. */
    pid_t process() const { return child_ ? child_->process() : 0; }

    /* Lets the feed end its round and close the database; then calls done, after 2 s in any case. */
    void end(std::function<void()> done);

  private:
    void start();
    void startAgain(const std::string& why);
    void lookForRound();
    void lookForLife();
    void finish();

    Children& children_;
    FeedOrder order_;
    std::function<void()> ready_;
    std::function<void()> done_;
    std::unique_ptr<Child> child_;
    Backoff backoff_;
    uint64_t restarts_ = 0;
    int looks_ = 0;
    std::chrono::nanoseconds worked_{};    // its processor time, at the last look
    std::chrono::milliseconds silence_{};  // for how long it has not changed
    host::Loop::Watch again_;
    host::Loop::Watch look_;
    host::Loop::Watch life_;
    host::Loop::Watch last_;  // the end of its patience with a feed that does not end
};

}  // namespace agent

#endif
