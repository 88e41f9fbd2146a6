/*
 * The simulated feed: fills all tables of the QoS statistics database with the state of a simulated device.
 *
 * Rates are per second of simulated time since the previous round, or since the device was made. Peaks and averages are
 * over the device's whole time. buffer_monitor_result has a row for each queue that has ended a burst: its last one.
 *
 * A SimFeed borrows its device and store, which must outlive it, and is used by one thread.
 */
#ifndef DEVHOST_FEED_SIM_FEED_H
#define DEVHOST_FEED_SIM_FEED_H

#include <vector>

#include "devhost/feed/simulated_device.h"
#include "devhost/qosdb/store.h"

namespace feed {

class SimFeed {
  public:
    SimFeed(const SimulatedDevice& device, qosdb::Store& store);

    /* Makes the device's state the database's, in one transaction, with the mark. Throws qosdb::StoreError. */
    void round(const qosdb::FeedMark& mark = {});

  private:
    struct Counted {
        Amount passed, dropped;
    };

    std::vector<qosdb::row::queue_stat> queueStats();

    const SimulatedDevice& device_;
    qosdb::Store& store_;
    SimulatedDevice::Milliseconds lastRound_;
    std::vector<Counted> counted_;  // of the last round, in the order of the queues
};

}  // namespace feed

#endif
