/*
 * The simulated device: slots with a traffic-manager chip each, ports on a chip, eight queues on a port.
 *
 * Time passes in ticks of a millisecond. In a tick a port first serves its queues, its rate shared by weight; then
 * packets arrive in bursts and are admitted or dropped; then usage is looked at. A queue's bytes lie in its guaranteed
 * buffer first, in the chip's shared buffer next, up to the queue's limit, and for lossless queues in their headroom at
 * last. What the limit keeps out is dropped by the queue, what a full chip keeps out is dropped by the port on ingress
 * and never arrives at the queue. The senders of a lossless queue pause while its headroom is in use.
 *
 * The model is pure: no clock, no files, integers only, its own random numbers. The same options and the same time give
 * the same state on every machine, however the time is cut into steps. It is used by one thread.
 */
#ifndef DEVHOST_FEED_SIMULATED_DEVICE_H
#define DEVHOST_FEED_SIMULATED_DEVICE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace feed {

struct SimOptions {
    static constexpr uint32_t kMaxSlots = 64;
    static constexpr uint32_t kMaxPorts = 1024;
    static constexpr uint32_t kMaxLoad = 400;

    uint32_t slots = 2;  // 1 to kMaxSlots
    uint32_t ports = 8;  // per slot, 1 to kMaxPorts
    uint32_t load = 90;  // arrivals in percent of the ports' rate, 0 to kMaxLoad
    uint64_t seed = 1;
    std::chrono::milliseconds startTime{};  // since 1970

    friend bool operator==(const SimOptions&, const SimOptions&) = default;
};

/* splitmix64 */
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next();
    uint32_t below(uint32_t bound) { return static_cast<uint32_t>((next() >> 32) * bound >> 32); }

  private:
    uint64_t state_;
};

struct Amount {
    uint64_t packets = 0;
    uint64_t bytes = 0;

    void add(uint64_t count, uint64_t packetSize) {
        packets += count;
        bytes += count * packetSize;
    }
    friend bool operator==(const Amount&, const Amount&) = default;
};

class SimulatedDevice {
  public:
    using Milliseconds = std::chrono::milliseconds;

    static constexpr uint32_t kPortBytesPerMs = 125'000;  // 1 Gbit/s
    static constexpr std::array<uint32_t, 3> kPacketSizes = {64, 594, 1518};

    static constexpr uint32_t kSharedPerPort = 512 * 1024;  // the chip's shared buffer, by its ports
    static constexpr uint32_t kGuaranteed = 16 * 1024;      // per queue
    static constexpr uint32_t kHeadroom = 192 * 1024;       // per lossless queue
    static constexpr uint32_t kEcnThreshold = 128 * 1024;   // packets admitted above it are marked
    static constexpr uint32_t kBurstPercent = 50;           // a burst: usage above this share of the queue's buffer

    /* What makes the queues of a port differ. */
    struct QueueProfile {
        uint32_t weight;    // of the service
        uint32_t share;     // of the arrivals, in 32nds
        uint32_t limit;     // bytes in guaranteed and shared buffer
        uint32_t headroom;  // bytes; not 0: the queue is lossless
        bool pfcDynamic;    // the limit shrinks with the free shared buffer
        bool ecn;

        constexpr bool lossless() const { return headroom != 0; }
        constexpr uint32_t totalBuffer() const { return limit + headroom; }
    };
    static constexpr size_t kQueues = 8;
    static constexpr uint32_t kLossyLimit = 512 * 1024;
    static constexpr uint32_t kLosslessLimit = 256 * 1024;
    static constexpr std::array<QueueProfile, kQueues> kProfiles = {{
        {4, 8, kLossyLimit, 0, false, false},
        {4, 4, kLossyLimit, 0, false, false},
        {4, 4, kLossyLimit, 0, false, true},
        {8, 6, kLosslessLimit, kHeadroom, false, true},
        {4, 4, kLosslessLimit, kHeadroom, true, false},
        {4, 3, kLossyLimit, 0, false, false},
        {2, 2, kLossyLimit, 0, false, false},
        {2, 1, kLossyLimit, 0, false, false},
    }};

    /* Bytes in use at the end of each tick. */
    struct Usage {
        uint64_t current = 0;
        uint64_t peak = 0;
        uint64_t average = 0;
    };

    struct Moment {
        Milliseconds time{};  // since 1970
        uint32_t used = 0;
    };
    struct Burst {
        Moment start, peak, end;  // end: the first moment that is not in the burst any more
    };

    /* Most of the time of a large device goes into fetching its queues: what a tick looks at stands together. */
    struct Queue {
        Amount arrived, passed, dropped;  // arrived = passed + dropped + queued
        uint64_t marked = 0;              // packets that ECN marked
        uint32_t headroom = 0;            // bytes in use

        Amount queued() const;
        uint32_t used() const { return used_; }
        uint32_t guaranteed() const;
        uint32_t shared() const { return used_ - headroom - guaranteed(); }

      private:
        friend class SimulatedDevice;
        uint32_t used_ = 0;
        std::array<uint32_t, kPacketSizes.size()> waiting_{};  // packets of each size; their order counts nowhere
        uint32_t deficit_ = 0;                                 // service granted but too short for a packet
        uint32_t unsent_ = 0;                                  // bytes of the senders that were too few for a packet
        uint16_t phaseLeft_ = 0;                               // ticks until the senders start or end a burst
        bool sending_ = false;
        bool inBurst_ = false;
        uint32_t peakUsed_ = 0;
        uint64_t usedSum_ = 0;
    };

    /* Of a queue. */
    struct Bursts {
        uint32_t ended = 0;
        Burst last;  // valid when one has ended

      private:
        friend class SimulatedDevice;
        Burst now_;
    };

    struct Port {
        uint32_t ifIndex = 0;  // not 0, below 2^29
        std::string ifName;
        std::array<Queue, kQueues> queues;
        Amount ingressDropped;

      private:
        friend class SimulatedDevice;
        uint64_t peakUsed_ = 0, usedSum_ = 0;

      public:
        std::array<Bursts, kQueues> bursts;  // of the queues
    };

    struct Slot {
        std::string text;     // "1", or "1/2" on even slots
        uint32_t number = 0;  // that the device database makes of the text
        std::vector<Port> ports;
        uint64_t sharedUsed = 0;
        uint64_t sharedSize = 0;
        uint64_t totalBuffer = 0;
    };

    explicit SimulatedDevice(const SimOptions& options);

    void advance(Milliseconds time);

    /* The simulated time since 1970. */
    Milliseconds now() const { return start_ + Milliseconds(ticks_); }

    const std::vector<Slot>& slots() const { return slots_; }
    Usage usage(const Queue& queue) const;
    Usage usage(const Port& port) const;

  private:
    void tick();
    void serve(Slot& slot, Port& port) const;
    void take(Slot& slot, Queue& queue, uint32_t bytes) const;
    template <size_t index>
    void arrive(Slot& slot, Port& port);
    template <size_t index>
    static void admit(Slot& slot, Port& port, uint32_t packets, size_t sizeIndex);
    void look(Port& port) const;
    void followBurst(Port& port, size_t index) const;

    Random random_;
    uint64_t load_;
    Milliseconds start_;
    int64_t ticks_ = 0;
    std::vector<Slot> slots_;
};

}  // namespace feed

#endif
