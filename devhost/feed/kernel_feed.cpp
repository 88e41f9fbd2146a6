#include "devhost/feed/kernel_feed.h"

#include <fmt/format.h>
#include <linux/pkt_sched.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace feed {

namespace {

constexpr size_t kMaxQueues = 8;

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

}  // namespace

KernelFeed::KernelFeed(NetlinkSource& source, qosdb::Store& store, Log log)
    : source_(source), store_(store), log_(std::move(log)) {}

size_t KernelFeed::round(Clock::time_point now) {
    const std::vector<Queue> queues = queuesOf(readKernel(source_));
    const auto rows = queueStats(queues, std::chrono::duration<double>(now - lastRound_).count());
    lastRound_ = now;

    qosdb::Round round = store_.begin();
    round.replace(rows);
    round.commit();
    return queues.size();
}

std::vector<KernelFeed::Queue> KernelFeed::queuesOf(const KernelState& state) {
    std::map<uint32_t, std::string> names;
    for (const Link& link : state.links) {
        names[link.ifIndex] = link.name;
    }

    std::vector<Queue> queues;
    for (const TcObject& discipline : state.disciplines) {
        const auto name = names.find(discipline.ifIndex);
        if (discipline.parent != TC_H_ROOT || name == names.end()) {  // the interface came between the dumps
            continue;
        }
        std::vector<const TcObject*> members = leafClasses(state.classes, discipline);
        if (members.empty() && discipline.counters) {
            members.push_back(&discipline);
        }
        if (members.size() > kMaxQueues) {
            if (cutInterfaces_.insert(discipline.ifIndex).second) {
                log_(fmt::format("{} has {} leaf classes: the first {} are its queues", name->second, members.size(),
                                 kMaxQueues));
            }
            members.resize(kMaxQueues);
        }
        uint32_t queueId = 0;
        for (const TcObject* member : members) {
            queues.push_back({discipline.ifIndex, name->second, queueId++, member->handle, *member->counters});
        }
    }
    return queues;
}

std::vector<qosdb::row::queue_stat> KernelFeed::queueStats(const std::vector<Queue>& queues, double seconds) {
    std::vector<qosdb::row::queue_stat> rows;
    std::map<std::pair<uint32_t, uint32_t>, Totals> totals;
    for (const Queue& queue : queues) {
        const auto key = std::pair(queue.ifIndex, queue.handle);
        const auto before = totals_.find(key);
        Totals now = {queue.counters.packets, queue.counters.bytes, queue.counters.drops};
        const bool goesOn =
            before != totals_.end() && continueTotals(before->second, now, queue.counters.packets64) && seconds > 0;
        const auto rate = [&](uint64_t Totals::*count) {
            return goesOn ? perSecond(now.*count - before->second.*count, seconds) : 0;
        };
        rows.push_back({.ifIndex = queue.ifIndex,
                        .ifName = queue.ifName,
                        .queueId = queue.queueId,
                        .passPackets = now.packets,
                        .passBytes = now.bytes,
                        .passPktRate = rate(&Totals::packets),
                        .passBytRate = rate(&Totals::bytes),
                        .dropPackets = now.drops,
                        .dropBytes = 0,
                        .dropPktRate = rate(&Totals::drops),
                        .dropBytRate = 0});
        totals[key] = now;
    }
    totals_ = std::move(totals);
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
