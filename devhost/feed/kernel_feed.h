/*
 * The kernel feed: fills the QoS statistics database with what this machine's kernel counts.
 *
 * Queues: the leaf classes of an interface's root discipline, in the order of their minors, are its queues 0 to 7; an
 * interface without classes has its root discipline as queue 0. Classes that the kernel does not count (the flow
 * buckets of fair queueing, the single class of a shaper) are no queues.
 *
 * Table queue_stat: passed packets and bytes and dropped packets are the kernel's counts, packets continued in 64 bits
 * where the kernel counts in 32; rates are per second since the previous round. The kernel counts no dropped bytes per
 * queue: dropBytes and dropBytRate are 0. The other tables stay as they are.
 *
 * A KernelFeed borrows its source and store, which must outlive it, and is used by one thread.
 */
#ifndef DEVHOST_FEED_KERNEL_FEED_H
#define DEVHOST_FEED_KERNEL_FEED_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "devhost/feed/netlink.h"
#include "devhost/qosdb/store.h"

namespace feed {

class KernelFeed {
  public:
    using Clock = std::chrono::steady_clock;
    using Log = std::function<void(const std::string&)>;

    /* log gets a line, once per interface, when classes beyond the eighth are left out. */
    KernelFeed(NetlinkSource& source, qosdb::Store& store, Log log);

    /*
     * Reads the kernel and makes that the database's state in one transaction; answers the number of queues. now is
     * this moment: rates are over the time since the previous call, and 0 for a queue that was not there then or whose
     * counters started anew. Throws NetlinkError or qosdb::StoreError; the feed is not to be used after that.
     */
    size_t round(Clock::time_point now);

  private:
    struct Queue {
        uint32_t ifIndex;
        std::string ifName;
        uint32_t queueId;
        uint32_t handle;  // of its class or discipline
        Counters counters;
    };

    struct Totals {
        uint64_t packets;
        uint64_t bytes;
        uint64_t drops;
    };

    std::vector<Queue> queuesOf(const KernelState& state);
    std::vector<qosdb::row::queue_stat> queueStats(const std::vector<Queue>& queues, double seconds);
    static bool continueTotals(const Totals& before, Totals& now, bool packets64);

    NetlinkSource& source_;
    qosdb::Store& store_;
    Log log_;
    Clock::time_point lastRound_;
    std::map<std::pair<uint32_t, uint32_t>, Totals> totals_;  // of the last round, by interface and handle
    std::set<uint32_t> cutInterfaces_;                        // whose classes beyond the eighth have been logged
};

}  // namespace feed

#endif
