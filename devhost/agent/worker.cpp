#include "devhost/agent/worker.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <random>
#include <string>
#include <system_error>
#include <utility>

#include "devhost/agent/order.h"
#include "devhost/feed/rounds.h"
#include "devhost/qosdb/qosdb.h"
#include "devhost/sampling/capture.h"
#include "devhost/sampling/host.h"
#include "devhost/sampling/table_rows.h"
#include "devhost/support/exit.h"
#include "devhost/support/stop.h"
#include "devhost/support/trouble.h"

namespace agent {

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using WallClock = std::chrono::system_clock;

uint64_t sinceEpoch(WallClock::time_point time) {
    return static_cast<uint64_t>(duration_cast<milliseconds>(time.time_since_epoch()).count());
}

uint64_t microsecondsOf(Clock::duration span) {
    return static_cast<uint64_t>(std::max(duration_cast<microseconds>(span), microseconds(0)).count());
}

/* The agent's end of the socket is closed: nobody wants the work any more. */
struct Unwanted : std::exception {};

/*
 * When passes are due: at the multiples of the interval by the wall clock, so that the samples of several devices and
 * subscriptions are of the same moments. A pass that takes longer than the interval costs the beats that it misses.
 */
class Beats {
  public:
    explicit Beats(milliseconds every) : every_(every) { aim(); }

    milliseconds untilDue() const {
        return std::max(std::chrono::ceil<milliseconds>(due_ - Clock::now()), milliseconds(0));
    }
    Clock::duration lateness() const { return Clock::now() - due_; }

    /* Aims at the next beat; answers how many have passed since the last one. */
    uint64_t advance() {
        const auto missed = std::max<int64_t>((Clock::now() - due_) / every_, 0);
        aim();
        return static_cast<uint64_t>(missed);
    }

  private:
    void aim() {
        const auto wall = WallClock::now().time_since_epoch();
        const auto next = (wall / every_ + 1) * every_;
        due_ = Clock::now() + duration_cast<Clock::duration>(next - wall);
    }

    milliseconds every_;
    Clock::time_point due_;
};

class Worker {
  public:
    explicit Worker(WorkerOrder order)
        : order_(std::move(order)),
          record_{.run = randomNumber(), .subscription = order_.subscription, .alias = order_.alias, .content = {}} {
        write(std::string(host::captureHead()));
    }

    int run() {
        try {
            QosDb_SetFile(order_.database.c_str());
            host::Host plugin(order_.plugin);
            const host::Path& path = plugin.path(order_.alias);
            order_.every.count() == 0 ? samplePerRequest(plugin, path) : samplePerBeat(plugin, path);
        } catch (const Unwanted&) {
            return host::kDone;
        } catch (const std::exception& error) {
            log(error.what());
        }
        return host::kFailed;
    }

  private:
    static uint64_t randomNumber() {
        std::random_device device;
        return uint64_t{device()} << 32 | device();
    }

    [[noreturn]] void samplePerBeat(host::Host& plugin, const host::Path& path) {
        for (Beats beats(order_.every);;) {
            while (const auto left = beats.untilDue().count()) {
                if (readRequest(static_cast<int>(std::min<int64_t>(left, 3'600'000)))) {
                    pass(plugin, path, {});
                }
            }
            pass(plugin, path, beats.lateness());
            if (const uint64_t missed = beats.advance(); missed > 0) {
                keep(host::MissedBeats{missed});
            }
        }
    }

    [[noreturn]] void samplePerRequest(host::Host& plugin, const host::Path& path) {
        for (;;) {
            if (readRequest(-1)) {
                pass(plugin, path, {});
            }
        }
    }

    void pass(host::Host& plugin, const host::Path& path, Clock::duration lateness) {
        ++record_.pass;
        const uint64_t beginTime = sinceEpoch(WallClock::now());
        const auto begin = Clock::now();
        host::Pass pass = plugin.runPass(
            path, order_.request, order_.subscription,
            [&](host::Batch batch) {
                keep(host::CapturedBatch{static_cast<QosTlmEncodeType>(order_.request.encodeType), std::move(batch)});
            },
            [&] {
                if (order_.followRows) {
                    for (auto& keys : rows_.gone(order_.alias)) {
                        keep(host::RowGone{std::move(keys)});
                    }
                }
            });
        for (const std::string& message : pass.messages) {
            log(message);
        }
        keep(host::PassEnd{.result = static_cast<uint8_t>(pass.result),
                           .records = pass.records,
                           .rows = pass.rows,
                           .beginTime = beginTime,
                           .duration = microsecondsOf(Clock::now() - begin),
                           .lateness = microsecondsOf(lateness)});
    }

    void log(const std::string& text) { keep(host::LogLine{sinceEpoch(WallClock::now()), text}); }

    template <class Content>
    void keep(Content content) {
        record_.content = std::move(content);
        write(host::captureBytes(record_));
    }

    // Whether the agent asked for a pass within so many milliseconds; -1 waits for as long as it takes.
    static bool readRequest(int wait) {
        pollfd control = {.fd = kControlFile, .events = POLLIN, .revents = 0};
        if (poll(&control, 1, wait) != 1) {
            return false;
        }
        char request = '\0';
        const ssize_t got = read(kControlFile, &request, 1);
        if (got == 0 || (got < 0 && errno != EINTR)) {
            throw Unwanted();
        }
        return got == 1 && request == kPassRequest;
    }

    static void write(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t sent = send(kControlFile, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0 && errno != EINTR) {
                throw Unwanted();
            }
            bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(sent, 0)));
        }
    }

    WorkerOrder order_;
    host::CaptureRecord record_;
    host::TableRows rows_;
};

}  // namespace

int runWorker() {
    prctl(PR_SET_NAME, "qos-worker");
    // A Ctrl-C is for the agent, which ends its children when it has finished with them.
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        std::signal(number, SIG_IGN);
    }
    try {
        return Worker(WorkerOrder::read(kControlFile)).run();
    } catch (const Unwanted&) {
        return host::kDone;
    } catch (const std::exception& error) {
        host::report(error.what());
        return host::kFailed;
    }
}

int runFeed() {
    prctl(PR_SET_NAME, "qos-feed");
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    try {
        host::catchStopSignals();
        std::signal(SIGINT, SIG_IGN);
        const FeedOrder order = FeedOrder::read(kControlFile);
        feed::SimFeedOptions options;
        options.database = order.database;
        options.every = order.feed.every;
        options.device = order.feed.device;
        options.speed = order.feed.speed;
        return order.feed.source == Configuration::Feed::Source::sim ? feed::runSimFeed(options)
                                                                     : feed::runKernelFeed(options);
    } catch (const std::exception& error) {
        host::report(error.what());
        return host::kFailed;
    }
}

}  // namespace agent
