#include "devhost/feed/rounds.h"

#include <fmt/format.h>

#include <algorithm>
#include <bitset>
#include <chrono>
#include <exception>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "devhost/feed/kernel_feed.h"
#include "devhost/feed/netlink.h"
#include "devhost/feed/sim_feed.h"
#include "devhost/feed/simulated_device.h"
#include "devhost/qosdb/store.h"
#include "devhost/support/exit.h"
#include "devhost/support/stop.h"
#include "devhost/support/trouble.h"

namespace feed {

namespace {

using host::kDone;
using host::kFailed;
using host::report;
using host::stopRequested;
using host::Trouble;
using host::waitUntil;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Seconds = std::chrono::duration<double>;

/*
 * When rounds are due: at the beginning and after each span. Those whose time has passed before the one ahead of them
 * was through are skipped. Rounds that keep being late are said once, and how many it cost at the end.
 */
class Pace {
  public:
    /* speed: how many times as fast the time passes that the rounds show; it stands still in a round that is skipped.
     */
    Pace(std::string what, milliseconds every, uint32_t speed) : what_(std::move(what)), every_(every), speed_(speed) {}

    Clock::time_point due() const { return due_; }
    uint64_t skipped() const { return skipped_; }

    void roundTook(Clock::duration time) {
        ++rounds_;
        longest_ = std::max(longest_, time);
        due_ += every_;
        const auto late = static_cast<uint64_t>(std::max(Clock::now() - due_, Clock::duration::zero()) / every_);
        due_ += late * every_;
        skipped_ += late;
        recent_ = recent_ << 1;
        recent_[0] = late > 0;
        if (!late_ && recent_.count() >= kKeepsBeingLate) {
            late_ = true;
            report(fmt::format("{} is late: a round takes {:.3g} s, one is due every {:.3g} s{}", what_,
                               Seconds(time).count(), Seconds(every_).count(),
                               speed_ == 0 ? "" : "; simulated time falls behind"));
        } else if (late_ && recent_.none()) {
            late_ = false;
            report(fmt::format("{} is on time again", what_));
        }
    }

    void sayTotal(uint64_t missed) const {
        if (missed < kKeepsBeingLate || missed * 10 < rounds_) {
            return;
        }
        const std::string simulated = speed_ == 0 ? ""
                                                  : fmt::format("; simulated time is {:.3g} s behind",
                                                                Seconds(skipped_ * every_ * speed_).count());
        report(fmt::format("{}: {} rounds missed, the longest took {:.3g} s{}", what_, missed,
                           Seconds(longest_).count(), simulated));
    }

  private:
    static constexpr size_t kKeepsBeingLate = 3;  // of the last rounds

    std::string what_;
    milliseconds every_;
    uint32_t speed_;
    Clock::time_point due_ = Clock::now();
    uint64_t rounds_ = 0;
    uint64_t skipped_ = 0;
    Clock::duration longest_{};
    std::bitset<10> recent_;  // which of the last rounds made others be skipped
    bool late_ = false;
};

// Writes a round with its mark and answers what is missing in it, with the reason.
using WriteRound = std::function<std::vector<std::string>(const qosdb::FeedMark& mark)>;

// Rounds that cannot be written are left out. speed is 0 where time is the clock's.
int runRounds(const FeedOptions& options, uint32_t speed, qosdb::Store& store, const WriteRound& round) {
    const uint64_t last = options.count.value_or(std::numeric_limits<uint64_t>::max());
    const std::string what = "feeding '" + options.database + "'";
    Trouble trouble(what);
    Pace pace(what, options.every, speed);
    auto mark = qosdb::FeedMark::ofThisProcess(speed == 0 ? "kernel" : "sim", options.every);
    uint64_t failed = 0;
    bool damaged = false;
    while (mark.round < last && !waitUntil(pace.due())) {
        const auto begin = Clock::now();
        mark.advance();
        mark.missed = pace.skipped() + failed;
        std::vector<std::string> messages;
        try {
            if (damaged) {
                store.reopen();
                damaged = false;
            }
            messages = round(mark);
        } catch (const qosdb::StoreError& error) {
            damaged = true;
            ++failed;
            messages.emplace_back(error.what());
        } catch (const std::exception& error) {
            ++failed;
            messages.emplace_back(error.what());
        }
        if (stopRequested()) {  // which leaves a round unwritten without a fault
            break;
        }
        trouble.tell(messages);
        pace.roundTook(Clock::now() - begin);
    }
    pace.sayTotal(pace.skipped() + failed);
    return trouble.ever() ? kFailed : kDone;
}

}  // namespace

int runKernelFeed(const FeedOptions& options) {
    qosdb::Store store(options.database, stopRequested);
    NetlinkSocket kernel;
    KernelFeed feed(kernel, store, [](const std::string& line) { report(line); });
    return runRounds(options, 0, store, [&](const qosdb::FeedMark& mark) {
        return feed.round(Clock::now(), std::chrono::system_clock::now(), mark).troubles;
    });
}

int runSimFeed(const SimFeedOptions& options) {
    qosdb::Store store(options.database, stopRequested);
    SimOptions deviceOptions = options.device;
    deviceOptions.startTime = std::chrono::floor<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    SimulatedDevice device(deviceOptions);
    SimFeed feed(device, store);
    return runRounds(options, options.speed, store, [&](const qosdb::FeedMark& mark) -> std::vector<std::string> {
        constexpr milliseconds kStep(10);  // after which a large device looks for the stop
        for (milliseconds left = options.every * options.speed; left.count() > 0; left -= kStep) {
            if (stopRequested()) {
                return {};
            }
            device.advance(std::min(left, kStep));
        }
        feed.round(mark);
        return {};
    });
}

}  // namespace feed
