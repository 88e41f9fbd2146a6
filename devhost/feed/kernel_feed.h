/*
 * The kernel feed: fills the QoS statistics database with what this machine's kernel counts.
 *
 * Queues: the leaf classes of an interface's root discipline, in the order of their minors, are its queues 0 to 7; an
 * interface without classes has its root discipline as queue 0. Classes that the kernel does not count (the flow
 * buckets of fair queueing, the single class of a shaper) are no queues.
 *
 * What fills which table, all in one transaction per round:
 *
 * queue_stat             passed packets and bytes and dropped packets are the kernel's counts, 32-bit ones continued in
 *                        64 bits; rates are per second since the previous round.
 * queue_drop_stat        the same dropped packets; queues that the interface lacks are 0.
 * queue_buf_stat         current is the backlog in bytes; peak and average are over the rounds since the feed first saw
 *                        the queue; total is the limit of the queue's discipline, or the interface's txqueuelen where
 *                        that tells none. Limits in packets count as packets of the interface's MTU: an estimate. 0 is
 *                        unknown, or noqueue.
 * port_buf_stat          sums over the interface's queues; peak and average are those of the sum.
 * port_ecn_stat          ECN marks of all disciplines of an interface (RED, CHOKe, CoDel, PIE and the fair-queueing
 *                        forms of the latter two); interfaces without such a discipline have no row.
 * ing_port_drop_stat     what every interface has received and dropped: rx_dropped plus rx_missed_errors.
 * buffer_monitor_result  the last ended burst of a queue: its backlog was above half of its total. Rounds are the
 *                        resolution: a shorter burst goes unseen.
 *
 * Where an interface has no queue (noqueue), the kernel counts nothing: its rows stay 0, and the mark's note names it.
 * The kernel counts no dropped bytes: they are 0 everywhere. It knows no slots, all is in slot 0, and neither buffers
 * of chips nor lossless headroom: tm_chip_buf_stat and ing_buf_usage_stat become empty.
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
#include <tuple>
#include <utility>
#include <vector>

#include "devhost/feed/buffer_history.h"
#include "devhost/feed/netlink.h"
#include "devhost/qosdb/store.h"

namespace feed {

class KernelFeed {
  public:
    using Clock = std::chrono::steady_clock;
    using Log = std::function<void(const std::string&)>;

    /* log gets a line, once per interface, when classes beyond the eighth are left out or nothing is counted. */
    KernelFeed(NetlinkSource& source, qosdb::Store& store, Log log);

    struct Written {
        size_t queues = 0;
        std::vector<std::string> troubles = {};  // what is missing or may be, with the reason
    };

    /*
     * Reads the kernel and makes that the database's state in one transaction, with the mark, whose note the feed
     * writes. now and wall are this moment: rates are over the time since the queue was last read, and 0 for one that
     * is new or whose counters started anew; bursts carry the wall time. Throws NetlinkError or qosdb::StoreError with
     * nothing written; the next round goes on from there.
     */
    Written round(Clock::time_point now, WallTime wall, qosdb::FeedMark mark = {});

  private:
    struct Queue {
        uint32_t ifIndex;
        std::string ifName;
        uint32_t queueId;
        uint32_t handle;  // of its class or discipline
        Counters counters;
        uint64_t totalBuffer;  // bytes; 0: unknown
    };

    struct Totals {
        uint64_t packets;
        uint64_t bytes;
        uint64_t drops;
        Clock::time_point read;
    };

    struct QueueHistory {
        UsageHistory usage;
        BurstMonitor bursts;
    };

    using QueueKey = std::pair<uint32_t, uint32_t>;                  // interface, handle
    using DisciplineKey = std::tuple<uint32_t, uint32_t, uint32_t>;  // interface, parent, handle: that may be 0

    struct BufferRows {
        std::vector<qosdb::row::queue_buf_stat> queues;
        std::vector<qosdb::row::port_buf_stat> ports;
        std::vector<qosdb::row::buffer_monitor_result> bursts;
    };

    std::vector<Queue> queuesOf(const KernelState& state);
    std::vector<qosdb::row::queue_stat> queueStats(const std::vector<Queue>& queues, Clock::time_point now);
    BufferRows bufferRows(const std::vector<Queue>& queues, WallTime wall);
    std::string noteOf(const KernelState& state);
    void forget(const KernelState& state, const std::vector<Queue>& queues);
    std::vector<qosdb::row::port_ecn_stat> ecnStats(const KernelState& state);
    static bool continueTotals(const Totals& before, Totals& now, bool packets64);

    NetlinkSource& source_;
    qosdb::Store& store_;
    Log log_;
    // Of the last time that each was read; what is gone is forgotten.
    std::map<QueueKey, Totals> totals_;
    std::map<QueueKey, QueueHistory> queueHistories_;
    std::map<uint32_t, UsageHistory> portHistories_;  // by interface
    std::map<DisciplineKey, uint64_t> ecnMarks_;
    std::set<uint32_t> cutInterfaces_;  // whose classes beyond the eighth have been logged
    std::set<std::string> uncounted_;   // interfaces without a queue
};

}  // namespace feed

#endif
