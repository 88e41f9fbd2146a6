#include "devhost/feed/kernel_feed.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <linux/pkt_sched.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace feed {

namespace {

namespace row = qosdb::row;

constexpr size_t kMaxQueues = 8;
constexpr uint32_t kSlot = 0;
const std::string kSlotText = "0";

// The counted leaf classes of a discipline, in the order of their minors.
std::vector<const TcObject*> leafClasses(const std::vector<TcObject>& classes, const TcObject& discipline) {
    std::vector<const TcObject*> own;
    std::set<uint32_t> parents;
    for (const TcObject& entry : classes) {
        if (entry.ifIndex == discipline.ifIndex && TC_H_MAJ(entry.handle) == TC_H_MAJ(discipline.handle)) {
            own.push_back(&entry);
            parents.insert(entry.parent);
        }
    }
    std::erase_if(own, [&](const TcObject* entry) { return parents.contains(entry->handle) || !entry->counters; });
    std::ranges::sort(own, {}, &TcObject::handle);
    return own;
}

// The count whose low 32 bits are given and that was `before`; none when it cannot have gone on from there.
std::optional<uint64_t> continueCount(uint64_t before, uint32_t low) {
    if (low >= before) {
        return low;
    }
    const uint32_t step = low - static_cast<uint32_t>(before);
    return step < (1u << 31) ? std::optional(before + step) : std::nullopt;
}

uint64_t perSecond(uint64_t amount, double seconds) {
    const double rate = static_cast<double>(amount) / seconds;
    return rate < 0x1p63 ? static_cast<uint64_t>(std::llround(rate)) : std::numeric_limits<uint64_t>::max();
}

// Of a queue whose discipline is given; null: the kernel shows none, which is its plain FIFO.
uint64_t totalBuffer(const Link& link, const TcObject* discipline) {
    if (discipline != nullptr && discipline->kind == "noqueue") {
        return 0;
    }
    const QueueLimit limit =
        discipline != nullptr && discipline->limit ? *discipline->limit : QueueLimit{link.txQueueLength, true};
    return limit.inPackets ? uint64_t{limit.amount} * link.mtu : limit.amount;
}

// One row per interface; the rows of its queues follow each other.
std::vector<row::queue_drop_stat> queueDrops(const std::vector<row::queue_stat>& queues) {
    using Row = row::queue_drop_stat;
    static constexpr uint64_t Row::*kPackets[kMaxQueues] = {
        &Row::queue0DropPkts, &Row::queue1DropPkts, &Row::queue2DropPkts, &Row::queue3DropPkts,
        &Row::queue4DropPkts, &Row::queue5DropPkts, &Row::queue6DropPkts, &Row::queue7DropPkts};
    std::vector<Row> rows;
    for (const row::queue_stat& queue : queues) {
        if (rows.empty() || rows.back().ifIndex != queue.ifIndex) {
            Row& added = rows.emplace_back();
            added.ifIndex = queue.ifIndex;
            added.ifName = queue.ifName;
        }
        rows.back().*kPackets[queue.queueId] = queue.dropPackets;
    }
    return rows;
}

std::vector<row::ing_port_drop_stat> receiveDrops(const std::vector<Link>& links) {
    std::vector<row::ing_port_drop_stat> rows;
    for (const Link& link : links) {
        if (link.receiveDrops) {
            rows.push_back(
                {.ifIndex = link.ifIndex, .ifName = link.name, .dropByts = 0, .dropPkts = *link.receiveDrops});
        }
    }
    return rows;
}

std::pair<uint64_t, uint32_t> secondsAndMilliseconds(WallTime time) {
    const auto count = std::chrono::floor<std::chrono::milliseconds>(time).time_since_epoch().count();
    return {static_cast<uint64_t>(count / 1000), static_cast<uint32_t>(count % 1000)};
}

row::buffer_monitor_result burstRow(uint32_t ifIndex, const std::string& ifName, uint32_t queueId, const Burst& burst) {
    const auto [startSeconds, startMs] = secondsAndMilliseconds(burst.start.time);
    const auto [peakSeconds, peakMs] = secondsAndMilliseconds(burst.peak.time);
    const auto [endSeconds, endMs] = secondsAndMilliseconds(burst.end.time);
    return {.if_index = ifIndex,
            .queue_index = queueId,
            .ifName = ifName,
            .used_buf = burst.end.used,
            .percent = burst.end.percent,
            .time_stamp = endSeconds,
            .milli_second = endMs,
            .start_used_buf = burst.start.used,
            .start_percent = burst.start.percent,
            .start_time_stamp = startSeconds,
            .start_milli_second = startMs,
            .peak_used_buf = burst.peak.used,
            .peak_percent = burst.peak.percent,
            .peak_time_stamp = peakSeconds,
            .peak_milli_second = peakMs,
            .slot = kSlot,
            .burst_number = burst.number};
}

std::string uncountedText(const std::vector<std::string>& names) {
    constexpr size_t kNamed = 8;
    const size_t named = std::min(names.size(), kNamed);
    return fmt::format("{}{} no queue (noqueue): the kernel counts nothing there",
                       fmt::join(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(named), ", "),
                       names.size() == 1      ? " has"
                       : names.size() > named ? fmt::format(" and {} more have", names.size() - named)
                                              : " have");
}

}  // namespace

KernelFeed::KernelFeed(NetlinkSource& source, qosdb::Store& store, Log log)
    : source_(source), store_(store), log_(std::move(log)) {}

KernelFeed::Written KernelFeed::round(Clock::time_point now, WallTime wall, qosdb::FeedMark mark) {
    KernelState state = readKernel(source_);
    mark.note = noteOf(state);
    const std::vector<Queue> queues = queuesOf(state);
    forget(state, queues);
    const auto queueRows = queueStats(queues, now);
    const BufferRows buffers = bufferRows(queues, wall);

    qosdb::Round round = store_.begin();
    round.replace(ecnStats(state));
    round.replace(buffers.ports);
    round.replace(buffers.queues);
    round.replace(queueRows);
    round.replace(queueDrops(queueRows));
    round.replace(receiveDrops(state.links));
    round.replace(std::vector<row::tm_chip_buf_stat>());
    round.replace(std::vector<row::ing_buf_usage_stat>());
    round.replace(buffers.bursts);
    round.mark(mark);
    round.commit();
    return {queues.size(), std::move(state.troubles)};
}

// Says it as well, of the interfaces that are new to it.
std::string KernelFeed::noteOf(const KernelState& state) {
    std::set<uint32_t> indices;
    for (const TcObject& discipline : state.disciplines) {
        if (discipline.parent == TC_H_ROOT && discipline.kind == "noqueue") {
            indices.insert(discipline.ifIndex);
        }
    }
    std::set<std::string> names;
    std::vector<std::string> added;
    for (const Link& link : state.links) {
        if (indices.contains(link.ifIndex)) {
            names.insert(link.name);
            if (!uncounted_.contains(link.name)) {
                added.push_back(link.name);
            }
        }
    }
    if (!added.empty()) {
        log_(uncountedText(added));
    }
    uncounted_ = std::move(names);
    return uncounted_.empty() ? "" : uncountedText({uncounted_.begin(), uncounted_.end()});
}

void KernelFeed::forget(const KernelState& state, const std::vector<Queue>& queues) {
    std::set<QueueKey> keys;
    std::set<uint32_t> interfaces = state.unread;
    for (const Queue& queue : queues) {
        keys.emplace(queue.ifIndex, queue.handle);
        interfaces.insert(queue.ifIndex);
    }
    const auto isGone = [&](const auto& entry) {
        return !keys.contains(entry.first) && !state.unread.contains(entry.first.first);
    };
    std::erase_if(totals_, isGone);
    std::erase_if(queueHistories_, isGone);
    std::erase_if(portHistories_, [&](const auto& entry) { return !interfaces.contains(entry.first); });
    std::erase_if(cutInterfaces_, [&](uint32_t ifIndex) { return !interfaces.contains(ifIndex); });
}

std::vector<KernelFeed::Queue> KernelFeed::queuesOf(const KernelState& state) {
    std::map<uint32_t, const Link*> links;
    for (const Link& link : state.links) {
        links[link.ifIndex] = &link;
    }
    std::map<QueueKey, const TcObject*> disciplines;  // by the class that they hang under
    for (const TcObject& discipline : state.disciplines) {
        disciplines[{discipline.ifIndex, discipline.parent}] = &discipline;
    }

    std::vector<Queue> queues;
    for (const TcObject& discipline : state.disciplines) {
        const auto found = links.find(discipline.ifIndex);
        if (discipline.parent != TC_H_ROOT || found == links.end() || state.unread.contains(discipline.ifIndex)) {
            continue;
        }
        const Link& link = *found->second;
        std::vector<const TcObject*> members = leafClasses(state.classes, discipline);
        if (members.empty() && discipline.counters) {
            members.push_back(&discipline);
        }
        if (members.size() > kMaxQueues) {
            if (cutInterfaces_.insert(discipline.ifIndex).second) {
                log_(fmt::format("{} has {} leaf classes: the first {} are its queues", link.name, members.size(),
                                 kMaxQueues));
            }
            members.resize(kMaxQueues);
        }
        uint32_t queueId = 0;
        for (const TcObject* member : members) {
            const auto leaf = disciplines.find({member->ifIndex, member->handle});
            const TcObject* holder =
                member == &discipline ? member : (leaf == disciplines.end() ? nullptr : leaf->second);
            queues.push_back(
                {link.ifIndex, link.name, queueId++, member->handle, *member->counters, totalBuffer(link, holder)});
        }
    }
    return queues;
}

std::vector<row::queue_stat> KernelFeed::queueStats(const std::vector<Queue>& queues, Clock::time_point now) {
    std::vector<row::queue_stat> rows;
    for (const Queue& queue : queues) {
        Totals counted = {queue.counters.packets, queue.counters.bytes, queue.counters.drops, now};
        const auto [place, isNew] = totals_.try_emplace({queue.ifIndex, queue.handle}, counted);
        const Totals before = std::as_const(place->second);
        const bool goesOn = continueTotals(before, counted, queue.counters.packets64) && before.read < now;
        const auto rate = [&](uint64_t Totals::*count) {
            const double seconds = std::chrono::duration<double>(now - before.read).count();
            return goesOn ? perSecond(counted.*count - before.*count, seconds) : 0;
        };
        place->second = counted;
        rows.push_back({.ifIndex = queue.ifIndex,
                        .ifName = queue.ifName,
                        .queueId = queue.queueId,
                        .passPackets = counted.packets,
                        .passBytes = counted.bytes,
                        .passPktRate = rate(&Totals::packets),
                        .passBytRate = rate(&Totals::bytes),
                        .dropPackets = counted.drops,
                        .dropBytes = 0,
                        .dropPktRate = rate(&Totals::drops),
                        .dropBytRate = 0});
    }
    return rows;
}

KernelFeed::BufferRows KernelFeed::bufferRows(const std::vector<Queue>& queues, WallTime wall) {
    BufferRows rows;
    for (const Queue& queue : queues) {
        const uint32_t used = queue.counters.backlogBytes;
        QueueHistory& history = queueHistories_[{queue.ifIndex, queue.handle}];
        history.usage.add(used);
        history.bursts.add(used, queue.totalBuffer, wall);
        rows.queues.push_back({.slotId = kSlot,
                               .slotIdStr = kSlotText,
                               .ifIndex = queue.ifIndex,
                               .ifName = queue.ifName,
                               .queueId = queue.queueId,
                               .curUsed = used,
                               .peakUsed = history.usage.peak(),
                               .avgUsed = history.usage.average(),
                               .totalBuf = queue.totalBuffer});
        if (const auto& burst = history.bursts.lastBurst()) {
            rows.bursts.push_back(burstRow(queue.ifIndex, queue.ifName, queue.queueId, *burst));
        }
        if (rows.ports.empty() || rows.ports.back().ifIndex != queue.ifIndex) {
            row::port_buf_stat& port = rows.ports.emplace_back();
            port.slotId = kSlot;
            port.slotIdStr = kSlotText;
            port.ifIndex = queue.ifIndex;
            port.ifName = queue.ifName;
        }
        rows.ports.back().totalBuff += queue.totalBuffer;
        rows.ports.back().currentUsed += used;
    }

    for (row::port_buf_stat& port : rows.ports) {
        UsageHistory& history = portHistories_[port.ifIndex];
        history.add(port.currentUsed);
        port.remained = port.totalBuff - std::min(port.totalBuff, port.currentUsed);
        port.peakUsed = history.peak();
        port.avgUsed = history.average();
    }
    return rows;
}

std::vector<row::port_ecn_stat> KernelFeed::ecnStats(const KernelState& state) {
    std::map<DisciplineKey, uint64_t> marks;
    std::map<uint32_t, uint64_t> sums;
    for (const TcObject& discipline : state.disciplines) {
        if (discipline.ecnMarks) {
            const DisciplineKey key = {discipline.ifIndex, discipline.parent, discipline.handle};
            const uint64_t count = continueCount(ecnMarks_[key], *discipline.ecnMarks).value_or(*discipline.ecnMarks);
            marks[key] = count;
            sums[discipline.ifIndex] += count;
        }
    }
    ecnMarks_ = std::move(marks);

    std::vector<row::port_ecn_stat> rows;
    for (const Link& link : state.links) {
        if (const auto sum = sums.find(link.ifIndex); sum != sums.end()) {
            rows.push_back({.ifIndex = link.ifIndex, .ifName = link.name, .packets = sum->second});
        }
    }
    return rows;
}

// Gives the 32-bit counts their high bits; false, and now as it is, when the counters started anew.
bool KernelFeed::continueTotals(const Totals& before, Totals& now, bool packets64) {
    const auto packets = continueCount(before.packets, static_cast<uint32_t>(now.packets));
    const auto drops = continueCount(before.drops, static_cast<uint32_t>(now.drops));
    if (now.bytes < before.bytes || !drops || (packets64 ? now.packets < before.packets : !packets)) {
        return false;
    }
    if (!packets64) {
        now.packets = *packets;
    }
    now.drops = *drops;
    return true;
}

}  // namespace feed
