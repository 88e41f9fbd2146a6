#include "devhost/feed/sim_feed.h"

#include <utility>

namespace feed {

namespace {

namespace row = qosdb::row;
using Device = SimulatedDevice;

uint32_t percentOf(uint64_t part, uint64_t whole) {
    return static_cast<uint32_t>(part * 100 / whole);
}

uint64_t perSecond(uint64_t amount, uint64_t inMilliseconds) {
    return inMilliseconds == 0 ? 0 : amount / inMilliseconds * 1000 + amount % inMilliseconds * 1000 / inMilliseconds;
}

std::pair<uint64_t, uint32_t> secondsAndMilliseconds(Device::Milliseconds time) {
    const auto count = static_cast<uint64_t>(time.count());
    return {count / 1000, static_cast<uint32_t>(count % 1000)};
}

/* The rows of a port, or of its queues, that need nothing but the device's state. */
struct Rows {
    std::vector<row::port_ecn_stat> portEcn;
    std::vector<row::port_buf_stat> portBuf;
    std::vector<row::queue_buf_stat> queueBuf;
    std::vector<row::queue_drop_stat> queueDrop;
    std::vector<row::ing_port_drop_stat> ingPortDrop;
    std::vector<row::tm_chip_buf_stat> chipBuf;
    std::vector<row::ing_buf_usage_stat> ingBuf;
    std::vector<row::buffer_monitor_result> bursts;
};

row::queue_drop_stat queueDrop(const Device::Port& port) {
    const auto& queues = port.queues;
    return {.ifIndex = port.ifIndex,
            .ifName = port.ifName,
            .queue0DropByts = queues[0].dropped.bytes,
            .queue0DropPkts = queues[0].dropped.packets,
            .queue1DropByts = queues[1].dropped.bytes,
            .queue1DropPkts = queues[1].dropped.packets,
            .queue2DropByts = queues[2].dropped.bytes,
            .queue2DropPkts = queues[2].dropped.packets,
            .queue3DropByts = queues[3].dropped.bytes,
            .queue3DropPkts = queues[3].dropped.packets,
            .queue4DropByts = queues[4].dropped.bytes,
            .queue4DropPkts = queues[4].dropped.packets,
            .queue5DropByts = queues[5].dropped.bytes,
            .queue5DropPkts = queues[5].dropped.packets,
            .queue6DropByts = queues[6].dropped.bytes,
            .queue6DropPkts = queues[6].dropped.packets,
            .queue7DropByts = queues[7].dropped.bytes,
            .queue7DropPkts = queues[7].dropped.packets};
}

row::buffer_monitor_result lastBurst(const Device::Slot& slot, const Device::Port& port, uint32_t queueId) {
    const auto& [start, peak, end] = port.bursts[queueId].last;
    const uint32_t total = Device::kProfiles[queueId].totalBuffer();
    const auto [startSeconds, startMs] = secondsAndMilliseconds(start.time);
    const auto [peakSeconds, peakMs] = secondsAndMilliseconds(peak.time);
    const auto [endSeconds, endMs] = secondsAndMilliseconds(end.time);
    return {.if_index = port.ifIndex,
            .queue_index = queueId,
            .ifName = port.ifName,
            .used_buf = end.used,
            .percent = percentOf(end.used, total),
            .time_stamp = endSeconds,
            .milli_second = endMs,
            .start_used_buf = start.used,
            .start_percent = percentOf(start.used, total),
            .start_time_stamp = startSeconds,
            .start_milli_second = startMs,
            .peak_used_buf = peak.used,
            .peak_percent = percentOf(peak.used, total),
            .peak_time_stamp = peakSeconds,
            .peak_milli_second = peakMs,
            .slot = slot.number,
            .burst_number = port.bursts[queueId].ended};
}

// Answers the bytes that the port uses.
uint64_t addPort(const Device& device, const Device::Slot& slot, const Device::Port& port, Rows& rows) {
    uint64_t marked = 0;
    uint64_t totalBuffer = 0;
    for (uint32_t queueId = 0; queueId < Device::kQueues; ++queueId) {
        const Device::Queue& queue = port.queues[queueId];
        const Device::QueueProfile& profile = Device::kProfiles[queueId];
        const Device::Usage usage = device.usage(queue);
        marked += queue.marked;
        totalBuffer += profile.totalBuffer();
        rows.queueBuf.push_back({.slotId = slot.number,
                                 .slotIdStr = slot.text,
                                 .ifIndex = port.ifIndex,
                                 .ifName = port.ifName,
                                 .queueId = queueId,
                                 .curUsed = usage.current,
                                 .peakUsed = usage.peak,
                                 .avgUsed = usage.average,
                                 .totalBuf = profile.totalBuffer()});
        rows.ingBuf.push_back({.if_index = port.ifIndex,
                               .queue = queueId,
                               .if_name = port.ifName,
                               .is_lossless = profile.lossless(),
                               .is_pfc_dynamic = profile.pfcDynamic,
                               .current_guaranteed = queue.guaranteed(),
                               .total_guaranteed = Device::kGuaranteed,
                               .current_buffer = queue.shared(),
                               .total_buffer = profile.limit - Device::kGuaranteed,
                               .current_headroom = queue.headroom,
                               .total_headroom = profile.headroom});
        if (port.bursts[queueId].ended > 0) {
            rows.bursts.push_back(lastBurst(slot, port, queueId));
        }
    }
    const Device::Usage usage = device.usage(port);
    rows.portBuf.push_back({.slotId = slot.number,
                            .slotIdStr = slot.text,
                            .ifIndex = port.ifIndex,
                            .ifName = port.ifName,
                            .totalBuff = totalBuffer,
                            .currentUsed = usage.current,
                            .remained = totalBuffer - usage.current,
                            .peakUsed = usage.peak,
                            .avgUsed = usage.average});
    rows.portEcn.push_back({.ifIndex = port.ifIndex, .ifName = port.ifName, .packets = marked});
    rows.queueDrop.push_back(queueDrop(port));
    rows.ingPortDrop.push_back({.ifIndex = port.ifIndex,
                                .ifName = port.ifName,
                                .dropByts = port.ingressDropped.bytes,
                                .dropPkts = port.ingressDropped.packets});
    return usage.current;
}

}  // namespace

SimFeed::SimFeed(const SimulatedDevice& device, qosdb::Store& store)
    : device_(device), store_(store), lastRound_(device.now()) {
    for (const Device::Slot& slot : device.slots()) {
        for (const Device::Port& port : slot.ports) {
            for (const Device::Queue& queue : port.queues) {
                counted_.push_back({queue.passed, queue.dropped});
            }
        }
    }
}

void SimFeed::round(const qosdb::FeedMark& mark) {
    Rows rows;
    for (const Device::Slot& slot : device_.slots()) {
        uint64_t used = 0;
        for (const Device::Port& port : slot.ports) {
            used += addPort(device_, slot, port, rows);
        }
        rows.chipBuf.push_back({.slotId = slot.text,
                                .totalBuf = slot.totalBuffer,
                                .usedBuf = used,
                                .usedPct = percentOf(used, slot.totalBuffer)});
    }
    const auto queueRows = queueStats();

    qosdb::Round round = store_.begin();
    round.replace(rows.portEcn);
    round.replace(rows.portBuf);
    round.replace(rows.queueBuf);
    round.replace(queueRows);
    round.replace(rows.queueDrop);
    round.replace(rows.ingPortDrop);
    round.replace(rows.chipBuf);
    round.replace(rows.ingBuf);
    round.replace(rows.bursts);
    round.mark(mark);
    round.commit();
}

std::vector<row::queue_stat> SimFeed::queueStats() {
    const auto span = static_cast<uint64_t>((device_.now() - lastRound_).count());
    lastRound_ = device_.now();
    std::vector<row::queue_stat> rows;
    auto before = counted_.begin();
    for (const Device::Slot& slot : device_.slots()) {
        for (const Device::Port& port : slot.ports) {
            for (uint32_t queueId = 0; queueId < Device::kQueues; ++queueId, ++before) {
                const Amount& passed = port.queues[queueId].passed;
                const Amount& dropped = port.queues[queueId].dropped;
                rows.push_back({.ifIndex = port.ifIndex,
                                .ifName = port.ifName,
                                .queueId = queueId,
                                .passPackets = passed.packets,
                                .passBytes = passed.bytes,
                                .passPktRate = perSecond(passed.packets - before->passed.packets, span),
                                .passBytRate = perSecond(passed.bytes - before->passed.bytes, span),
                                .dropPackets = dropped.packets,
                                .dropBytes = dropped.bytes,
                                .dropPktRate = perSecond(dropped.packets - before->dropped.packets, span),
                                .dropBytRate = perSecond(dropped.bytes - before->dropped.bytes, span)});
                *before = {passed, dropped};
            }
        }
    }
    return rows;
}

}  // namespace feed
