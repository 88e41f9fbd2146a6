#include <algorithm>
#include <chrono>
#include <exception>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "devhost/cli/commands.h"
#include "devhost/cli/exit.h"
#include "devhost/cli/stop.h"
#include "devhost/cli/trouble.h"
#include "devhost/feed/kernel_feed.h"
#include "devhost/feed/netlink.h"
#include "devhost/feed/sim_feed.h"
#include "devhost/feed/simulated_device.h"
#include "devhost/qosdb/store.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

// Writes a round and answers what is missing in it, with the reason.
using WriteRound = std::function<std::vector<std::string>()>;

// A round in each span; a round that takes longer puts the next ones off, one that cannot be written is left out.
int runRounds(const FeedOptions& options, qosdb::Store& store, const WriteRound& round) {
    const uint64_t last = options.count.value_or(std::numeric_limits<uint64_t>::max());
    auto next = Clock::now();
    Trouble trouble("feeding '" + options.database + "'");
    bool damaged = false;
    for (uint64_t number = 1; number <= last && !waitUntil(next); ++number) {
        std::vector<std::string> messages;
        try {
            if (damaged) {
                store.reopen();
                damaged = false;
            }
            messages = round();
        } catch (const qosdb::StoreError& error) {
            damaged = true;
            messages.emplace_back(error.what());
        } catch (const std::exception& error) {
            messages.emplace_back(error.what());
        }
        if (!stopRequested()) {  // which leaves a round unwritten without a fault
            trouble.tell(messages);
        }
        next = std::max(next + options.every, Clock::now());
    }
    return trouble.ever() ? kFailed : kDone;
}

}  // namespace

int runKernelFeed(const FeedOptions& options) {
    qosdb::Store store(options.database, stopRequested);
    feed::NetlinkSocket kernel;
    feed::KernelFeed feed(kernel, store, [](const std::string& line) { report(line); });
    return runRounds(options, store,
                     [&] { return feed.round(Clock::now(), std::chrono::system_clock::now()).troubles; });
}

int runSimFeed(const SimFeedOptions& options) {
    using std::chrono::milliseconds;
    qosdb::Store store(options.database, stopRequested);
    feed::SimOptions deviceOptions = options.device;
    deviceOptions.startTime = std::chrono::floor<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    feed::SimulatedDevice device(deviceOptions);
    feed::SimFeed feed(device, store);
    return runRounds(options, store, [&]() -> std::vector<std::string> {
        constexpr milliseconds kStep(10);  // after which a large device looks for the stop
        for (milliseconds left = options.every * options.speed; left.count() > 0; left -= kStep) {
            if (stopRequested()) {
                return {};
            }
            device.advance(std::min(left, kStep));
        }
        feed.round();
        return {};
    });
}

}  // namespace host
