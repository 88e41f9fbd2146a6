/*
 * What the kernel feed remembers of a buffer from round to round: the peak and average of its use, and its bursts.
 *
 * Plain values that their owner feeds one reading per round, with the time that the reading is from.
 */
#ifndef DEVHOST_FEED_BUFFER_HISTORY_H
#define DEVHOST_FEED_BUFFER_HISTORY_H

#include <chrono>
#include <cstdint>
#include <optional>

namespace feed {

using WallTime = std::chrono::system_clock::time_point;

/* Peak and average of all readings, each of the same weight. */
class UsageHistory {
  public:
    void add(uint64_t used);

    uint64_t peak() const { return peak_; }
    uint64_t average() const;  // to the nearest, 0 before the first reading

  private:
    uint64_t peak_ = 0;
    uint64_t sum_ = 0;
    uint64_t readings_ = 0;
};

struct Burst {
    struct Moment {
        uint32_t used;     // bytes
        uint32_t percent;  // of the total; more than 100 where the total is an estimate
        WallTime time;
    };
    Moment start;     // the first reading above half of the total
    Moment peak;      // the first of the highest readings
    Moment end;       // the first reading back at half of the total or below
    uint32_t number;  // 1 for the first of its buffer
};

/* Finds bursts: runs of readings above half of the total. Of a buffer without a known total (0) there are none. */
class BurstMonitor {
  public:
    void add(uint32_t used, uint64_t total, WallTime time);

    /* The last burst that has ended. */
    const std::optional<Burst>& lastBurst() const { return last_; }

  private:
    std::optional<Burst> current_;
    std::optional<Burst> last_;
    uint32_t bursts_ = 0;
};

}  // namespace feed

#endif
