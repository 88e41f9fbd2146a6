#include "devhost/feed/simulated_device.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace feed {

namespace {

// Senders burst a quarter of the time, at 13/4 of their mean rate; between bursts they send 1/4 of it.
constexpr uint64_t kBurstQuarters = 13;
constexpr uint64_t kQuietQuarters = 1;
constexpr uint32_t kBurstTicks = 8, kBurstSpread = 17;   // 8 to 24
constexpr uint32_t kQuietTicks = 24, kQuietSpread = 49;  // 24 to 72

constexpr std::array<size_t, 4> kSizeMix = {0, 1, 2, 2};  // each packet size's share of the arrivals

constexpr uint32_t kPlaces = 64;  // of a slot text's second number

constexpr uint64_t sum(uint32_t SimulatedDevice::QueueProfile::*field) {
    uint64_t total = 0;
    for (const auto& profile : SimulatedDevice::kProfiles) {
        total += profile.*field;
    }
    return total;
}
constexpr uint64_t kShares = sum(&SimulatedDevice::QueueProfile::share);
static_assert(kShares == 32);

constexpr auto kBurstAbove = [] {
    std::array<uint32_t, SimulatedDevice::kQueues> bytes{};
    for (size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<uint32_t>(uint64_t{SimulatedDevice::kProfiles[index].totalBuffer()} *
                                             SimulatedDevice::kBurstPercent / 100);
    }
    return bytes;
}();

constexpr uint64_t roomBelow(uint64_t limit, uint64_t used) {
    return limit > used ? limit - used : 0;
}

// Division without the processor's, by numbers below 2^11 of dividends below kDividends.
constexpr uint32_t kDividends = 1 << 20;
constexpr int kReciprocalBits = 40;
constexpr uint64_t reciprocalOf(uint64_t divisor) {
    return (uint64_t{1} << kReciprocalBits) / divisor + 1;
}
constexpr uint32_t divided(uint32_t dividend, uint64_t reciprocal) {
    return static_cast<uint32_t>(dividend * reciprocal >> kReciprocalBits);
}

template <size_t size>
constexpr std::array<uint64_t, size> reciprocalsOf(const std::array<uint32_t, size>& divisors) {
    std::array<uint64_t, size> reciprocals{};
    std::transform(divisors.begin(), divisors.end(), reciprocals.begin(), reciprocalOf);
    return reciprocals;
}
constexpr auto kPerPacketSize = reciprocalsOf(SimulatedDevice::kPacketSizes);
constexpr uint64_t kWeights = sum(&SimulatedDevice::QueueProfile::weight);
constexpr auto kPerWeights = [] {
    std::array<uint32_t, kWeights + 1> divisors{};
    std::iota(divisors.begin() + 1, divisors.end(), 1);
    divisors[0] = 1;  // never used
    return reciprocalsOf(divisors);
}();

}  // namespace

uint64_t Random::next() {
    uint64_t mixed = state_ += 0x9e3779b97f4a7c15;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
    return mixed ^ (mixed >> 31);
}

Amount SimulatedDevice::Queue::queued() const {
    return {std::accumulate(waiting_.begin(), waiting_.end(), uint64_t{0}), used_};
}

uint32_t SimulatedDevice::Queue::guaranteed() const {
    return std::min(used_ - headroom, kGuaranteed);
}

SimulatedDevice::SimulatedDevice(const SimOptions& options)
    : random_(options.seed), load_(options.load), start_(options.startTime), slots_(options.slots) {
    for (uint32_t place = 1; place <= options.slots; ++place) {
        Slot& slot = slots_[place - 1];
        slot.text = std::to_string(place);
        slot.number = place;
        if (place % 2 == 0) {
            slot.number = kPlaces + place;
            slot.text = std::to_string(slot.number / kPlaces) + "/" + std::to_string(slot.number % kPlaces);
        }
        slot.sharedSize = uint64_t{kSharedPerPort} * options.ports;
        slot.totalBuffer = slot.sharedSize + options.ports * (kQueues * kGuaranteed + sum(&QueueProfile::headroom));
        slot.ports.resize(options.ports);
        for (uint32_t number = 1; number <= options.ports; ++number) {
            Port& port = slot.ports[number - 1];
            port.ifIndex = place * SimOptions::kMaxPorts + number;
            port.ifName = "ETH" + std::to_string(place) + "/0/" + std::to_string(number);
            for (Queue& queue : port.queues) {
                queue.phaseLeft_ = static_cast<uint16_t>(random_.below(kQuietTicks + kQuietSpread));
            }
        }
    }
}

void SimulatedDevice::advance(Milliseconds time) {
    for (int64_t left = time.count(); left > 0; --left) {
        tick();
    }
}

void SimulatedDevice::tick() {
    ++ticks_;
    for (Slot& slot : slots_) {
        for (Port& port : slot.ports) {
            serve(slot, port);
            [&]<size_t... index>(std::index_sequence<index...>) {
                (arrive<index>(slot, port), ...);
            }
            (std::make_index_sequence<kQueues>());
            look(port);
        }
    }
}

// Deals the port's bytes out by weight until they are used up or no queue wants more.
void SimulatedDevice::serve(Slot& slot, Port& port) const {
    std::array<uint32_t, kQueues> wanted;
    std::array<uint32_t, kQueues> granted{};
    uint64_t used = 0;
    for (size_t index = 0; index < kQueues; ++index) {
        used += wanted[index] = port.queues[index].used();
    }
    uint32_t left = kPortBytesPerMs;
    // Mostly there is more than enough for all: no part of what is left by then is rounded down to nothing.
    if (used + 2 * kWeights <= left) {
        granted = wanted;
        left = 0;
    }
    while (left > 0) {
        uint32_t weights = 0;
        for (size_t index = 0; index < kQueues; ++index) {
            weights += granted[index] < wanted[index] ? kProfiles[index].weight : 0;
        }
        uint32_t dealt = 0;
        for (size_t index = 0; index < kQueues; ++index) {
            if (granted[index] < wanted[index]) {
                const uint32_t part = std::min(divided(left * kProfiles[index].weight, kPerWeights[weights]),
                                               wanted[index] - granted[index]);
                granted[index] += part;
                dealt += part;
            }
        }
        if (dealt == 0) {
            break;
        }
        left -= dealt;
    }
    for (size_t index = 0; index < kQueues; ++index) {
        take(slot, port.queues[index], granted[index]);
    }
}

// Sends whole packets; what is left over of the grant counts in the next tick if packets still wait.
void SimulatedDevice::take(Slot& slot, Queue& queue, uint32_t bytes) const {
    constexpr size_t kSizes = kPacketSizes.size();
    const uint32_t sharedBefore = queue.shared();
    uint32_t budget = queue.deficit_ + bytes;
    if (budget >= queue.used_) {
        queue.passed.packets += queue.queued().packets;
        queue.passed.bytes += queue.used_;
        queue.waiting_ = {};
        queue.used_ = queue.headroom = 0;
        queue.deficit_ = 0;
        slot.sharedUsed -= sharedBefore;
        return;
    }
    auto sizeIndex = static_cast<size_t>(ticks_) % kSizes;  // each is first in turn
    for (size_t step = 0; step < kSizes; ++step, sizeIndex = sizeIndex + 1 == kSizes ? 0 : sizeIndex + 1) {
        const uint32_t size = kPacketSizes[sizeIndex];
        const uint32_t packets = std::min(queue.waiting_[sizeIndex], divided(budget, kPerPacketSize[sizeIndex]));
        queue.waiting_[sizeIndex] -= packets;
        queue.used_ -= packets * size;
        queue.headroom -= std::min(queue.headroom, packets * size);
        queue.passed.add(packets, size);
        budget -= packets * size;
    }
    queue.deficit_ = queue.used_ == 0 ? 0 : budget;
    slot.sharedUsed -= sharedBefore - queue.shared();
}

template <size_t index>
void SimulatedDevice::arrive(Slot& slot, Port& port) {
    Queue& queue = port.queues[index];
    constexpr const QueueProfile& profile = kProfiles[index];
    if (queue.phaseLeft_ == 0) {
        queue.sending_ = !queue.sending_;
        queue.phaseLeft_ = static_cast<uint16_t>(queue.sending_ ? kBurstTicks + random_.below(kBurstSpread)
                                                                : kQuietTicks + random_.below(kQuietSpread));
    }
    --queue.phaseLeft_;
    const uint64_t jitter = 512 + random_.below(1025);  // half to one and a half, in 1024ths
    const size_t sizeIndex = kSizeMix[random_.below(kSizeMix.size())];
    if (queue.headroom > 0) {  // paused
        return;
    }
    const uint64_t quarters = queue.sending_ ? kBurstQuarters : kQuietQuarters;
    static_assert(uint64_t{kPortBytesPerMs} * SimOptions::kMaxLoad * 8 * kBurstQuarters * 1536 /
                      (100 * kShares * 4 * 1024) <
                  kDividends - kPacketSizes.back());
    const auto bytes = static_cast<uint32_t>(queue.unsent_ + kPortBytesPerMs * load_ * profile.share * quarters *
                                                                 jitter / (100 * kShares * 4 * 1024));
    const auto packets = divided(bytes, kPerPacketSize[sizeIndex]);
    queue.unsent_ = bytes - packets * kPacketSizes[sizeIndex];
    if (packets > 0) {
        admit<index>(slot, port, packets, sizeIndex);
    }
}

// The queue is not paused: it has nothing in its headroom.
template <size_t index>
void SimulatedDevice::admit(Slot& slot, Port& port, uint32_t packets, size_t sizeIndex) {
    Queue& queue = port.queues[index];
    constexpr const QueueProfile& profile = kProfiles[index];
    const uint32_t size = kPacketSizes[sizeIndex];
    const uint64_t sharedFree = slot.sharedSize - slot.sharedUsed;
    const uint64_t limit =
        profile.pfcDynamic ? std::min<uint64_t>(profile.limit, kGuaranteed + sharedFree / 8) : profile.limit;
    const uint64_t queueRoom = roomBelow(limit, queue.used_);
    const uint64_t chipRoom = roomBelow(kGuaranteed, queue.used_) + sharedFree;
    const uint64_t room = std::min(queueRoom, chipRoom);
    const uint32_t usedBefore = queue.used_;
    uint32_t taken = packets;
    uint32_t intoHeadroom = 0;
    if (uint64_t{packets} * size > room) [[unlikely]] {
        static_assert(kLossyLimit < kDividends);
        taken = divided(static_cast<uint32_t>(room), kPerPacketSize[sizeIndex]);
        intoHeadroom = std::min(packets - taken, profile.headroom / size);
        taken += intoHeadroom;
        const uint32_t refused = packets - taken;
        if (chipRoom < queueRoom) {
            port.ingressDropped.add(refused, size);
        } else {
            queue.dropped.add(refused, size);
            queue.arrived.add(refused, size);
        }
    }
    queue.arrived.add(taken, size);
    queue.waiting_[sizeIndex] += taken;
    queue.used_ += taken * size;
    queue.headroom = intoHeadroom * size;
    slot.sharedUsed += queue.shared() - roomBelow(usedBefore, kGuaranteed);
    if (profile.ecn && queue.used_ > kEcnThreshold) {
        const uint64_t unmarked = (roomBelow(kEcnThreshold, usedBefore) + size - 1) / size;
        queue.marked += roomBelow(taken, unmarked);
    }
}

void SimulatedDevice::look(Port& port) const {
    uint64_t used = 0;
    for (size_t index = 0; index < kQueues; ++index) {
        Queue& queue = port.queues[index];
        used += queue.used_;
        queue.usedSum_ += queue.used_;
        queue.peakUsed_ = std::max(queue.peakUsed_, queue.used_);
        if (queue.used_ > kBurstAbove[index] || queue.inBurst_) {
            followBurst(port, index);
        }
    }
    port.usedSum_ += used;
    port.peakUsed_ = std::max(port.peakUsed_, used);
}

void SimulatedDevice::followBurst(Port& port, size_t index) const {
    Queue& queue = port.queues[index];
    const bool above = queue.used_ > kBurstAbove[index];
    Bursts& bursts = port.bursts[index];
    const Moment moment = {now(), queue.used_};
    if (!queue.inBurst_) {
        bursts.now_ = {.start = moment, .peak = moment, .end = {}};
    } else if (above && moment.used > bursts.now_.peak.used) {
        bursts.now_.peak = moment;
    } else if (!above) {
        bursts.now_.end = moment;
        bursts.last = bursts.now_;
        ++bursts.ended;
    }
    queue.inBurst_ = above;
}

SimulatedDevice::Usage SimulatedDevice::usage(const Queue& queue) const {
    const auto ticks = static_cast<uint64_t>(std::max<int64_t>(ticks_, 1));
    return {queue.used_, queue.peakUsed_, queue.usedSum_ / ticks};
}

SimulatedDevice::Usage SimulatedDevice::usage(const Port& port) const {
    const auto ticks = static_cast<uint64_t>(std::max<int64_t>(ticks_, 1));
    uint64_t used = 0;
    for (const Queue& queue : port.queues) {
        used += queue.used_;
    }
    return {used, port.peakUsed_, port.usedSum_ / ticks};
}

}  // namespace feed
