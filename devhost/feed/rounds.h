/*
 * Keeps a database fresh: a round of a feed in each span, until the stop is requested.
 *
 * A round that cannot be written is left out and told on standard error, like rounds that are late. Both functions
 * answer an exit code: kFailed when any round had trouble. They throw std::exception when they cannot begin.
 */
#ifndef DEVHOST_FEED_ROUNDS_H
#define DEVHOST_FEED_ROUNDS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "devhost/feed/simulated_device.h"

namespace feed {

struct FeedOptions {
    std::string database;  // its file; made if it is not there
    std::chrono::milliseconds every = std::chrono::seconds(1);
    std::optional<uint64_t> count;  // rounds, then end
};

struct SimFeedOptions : FeedOptions {
    static constexpr uint32_t kMaxSpeed = 1000;

    SimOptions device;
    uint32_t speed = 1;  // how many times as fast time passes, 1 to kMaxSpeed
};

int runKernelFeed(const FeedOptions& options);
int runSimFeed(const SimFeedOptions& options);

}  // namespace feed

#endif
