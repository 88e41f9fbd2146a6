/*
 * Where an output keeps what it has been offered until it has handed it on: bounded in bytes, with the account of its
 * records. One thread offers and never waits; others take and settle.
 */
#ifndef DEVHOST_OUTPUTS_BOUNDED_QUEUE_H
#define DEVHOST_OUTPUTS_BOUNDED_QUEUE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "devhost/support/account.h"

namespace outputs {

enum class WhenFull : uint8_t { dropOldest, dropNewest };

template <class Item>
class BoundedQueue {
  public:
    using Clock = std::chrono::steady_clock;

    struct Entry {
        Item item;
        uint64_t records;
        size_t bytes;
    };

    /* What an entry takes besides its item's bytes, about; part of the bound. */
    static constexpr size_t kOverhead = sizeof(Entry) + 32;

    explicit BoundedQueue(size_t bytes, WhenFull whenFull = WhenFull::dropOldest)
        : bound_(bytes), whenFull_(whenFull) {}

    /* What waits beyond a smaller bound stays until the next offer. */
    void setBound(size_t bytes, WhenFull whenFull) {
        const std::scoped_lock lock(mutex_);
        bound_ = bytes;
        whenFull_ = whenFull;
    }

    /*
     * Adds the item, which takes so many bytes and has so many records, perhaps none. Where there is no room, the
     * oldest that nobody has taken are dropped for it, or else it is dropped itself.
     */
    void offer(Item item, size_t bytes, uint64_t records) {
        const size_t size = bytes + kOverhead;
        const std::scoped_lock lock(mutex_);
        account_.offered += records;
        if (closed_) {
            account_.drop(host::Drop::stopped, records);
            return;
        }
        if (size > bound_) {
            account_.drop(host::Drop::tooLarge, records);
            return;
        }
        while (whenFull_ == WhenFull::dropOldest && account_.bytesWaiting + size > bound_ && !entries_.empty()) {
            settle(entries_.front());
            account_.drop(host::Drop::full, entries_.front().records);
            entries_.pop_front();
        }
        if (account_.bytesWaiting + size > bound_) {
            account_.drop(host::Drop::full, records);
            return;
        }
        account_.waiting += records;
        account_.bytesWaiting += size;
        entries_.push_back({std::move(item), records, size});
        changed_.notify_one();
    }

    /*
     * The oldest entry, as soon as there is one; none when the time is reached, or all are taken of a queue that was
     * closed. It is waiting until it is settled by one of the three calls below.
     */
    std::optional<Entry> take(Clock::time_point until = Clock::time_point::max()) {
        std::unique_lock lock(mutex_);
        wait(lock, until, [this] { return closed_ || !entries_.empty(); });
        if (entries_.empty()) {
            return std::nullopt;
        }
        Entry entry = std::move(entries_.front());
        entries_.pop_front();
        return entry;
    }

    void delivered(const Entry& entry) {
        const std::scoped_lock lock(mutex_);
        if (!abandoned_) {
            settle(entry);
            account_.delivered += entry.records;
        }
    }

    /* The error is for people. */
    void dropped(const Entry& entry, host::Drop reason, std::string error) {
        const std::scoped_lock lock(mutex_);
        account_.lastError = std::move(error);
        if (!abandoned_) {
            settle(entry);
            account_.drop(reason, entry.records);
        }
    }

    /* It is the next to be taken again. */
    void putBack(Entry entry) {
        const std::scoped_lock lock(mutex_);
        if (!abandoned_) {
            entries_.push_front(std::move(entry));
            changed_.notify_one();
        }
    }

    /* The receiver is there again. */
    void reconnected() {
        const std::scoped_lock lock(mutex_);
        ++account_.reconnects;
    }

    /* What is offered from now on is dropped as stopped; what waits can still be taken. */
    void close() {
        const std::scoped_lock lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

    /* Closes, and drops as stopped all that is not settled; what becomes of entries that are taken is no longer
     * counted. */
    void abandon() {
        const std::scoped_lock lock(mutex_);
        closed_ = true;
        abandoned_ = true;
        account_.drop(host::Drop::stopped, std::exchange(account_.waiting, 0));
        account_.bytesWaiting = 0;
        entries_.clear();
        changed_.notify_all();
    }

    bool isAbandoned() const {
        const std::scoped_lock lock(mutex_);
        return abandoned_;
    }

    /* Returns at this time, or when the queue is closed. */
    void waitForClose(Clock::time_point until) {
        std::unique_lock lock(mutex_);
        wait(lock, until, [this] { return closed_; });
    }

    /* Of this moment. */
    host::Account account() const {
        const std::scoped_lock lock(mutex_);
        return account_;
    }

  private:
    template <class Condition>
    void wait(std::unique_lock<std::mutex>& lock, Clock::time_point until, Condition condition) {
        if (until == Clock::time_point::max()) {
            changed_.wait(lock, condition);
        } else {
            changed_.wait_until(lock, until, condition);
        }
    }

    void settle(const Entry& entry) {
        account_.waiting -= entry.records;
        account_.bytesWaiting -= entry.bytes;
    }

    mutable std::mutex mutex_;
    size_t bound_;
    WhenFull whenFull_;
    std::condition_variable changed_;
    std::deque<Entry> entries_;  // that nobody has taken
    host::Account account_;
    bool closed_ = false;
    bool abandoned_ = false;
};

}  // namespace outputs

#endif
