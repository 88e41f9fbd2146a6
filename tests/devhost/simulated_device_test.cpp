// The simulated device's laws of conservation, its promises on loss, and the tables that the feed makes of it.
#include "devhost/feed/simulated_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

#include "devhost/feed/sim_feed.h"
#include "platform/device_db.h"

namespace feed {
namespace {

using namespace std::chrono_literals;
namespace row = qosdb::row;
using Device = SimulatedDevice;

constexpr std::chrono::milliseconds kStart = 1'700'000'000'123ms;

template <class Visit>  // visit(slot, port, queue, queueId)
void forEachQueue(const Device& device, Visit visit) {
    for (const auto& slot : device.slots()) {
        for (const auto& port : slot.ports) {
            for (size_t index = 0; index < Device::kQueues; ++index) {
                visit(slot, port, port.queues[index], index);
            }
        }
    }
}

/* What a device did in all. */
struct Totals {
    uint64_t passedBytes = 0, lossyDrops = 0, losslessDrops = 0, ingressDrops = 0, marked = 0, bursts = 0;
    uint32_t mostHeadroom = 0;
};

/* Checks what holds after each tick, for every queue and chip. */
void checkState(const Device& device, std::vector<Amount>& before) {
    std::map<const Device::Slot*, uint64_t> shared;
    size_t position = 0;
    before.resize(device.slots().size() * device.slots()[0].ports.size() * Device::kQueues * 3);
    forEachQueue(device, [&](const auto& slot, const auto& port, const auto& queue, size_t index) {
        SCOPED_TRACE(port.ifName + " queue " + std::to_string(index) + " at " + std::to_string(device.now().count()));
        const auto& profile = Device::kProfiles[index];
        const Amount queued = queue.queued();
        EXPECT_EQ(queue.arrived.packets, queue.passed.packets + queue.dropped.packets + queued.packets);
        EXPECT_EQ(queue.arrived.bytes, queue.passed.bytes + queue.dropped.bytes + queued.bytes);
        EXPECT_GE(queued.bytes, queued.packets * Device::kPacketSizes.front());
        EXPECT_LE(queued.bytes, queued.packets * Device::kPacketSizes.back());
        EXPECT_LE(queue.headroom, profile.headroom);
        EXPECT_LE(queue.used() - queue.headroom, profile.limit);
        EXPECT_LE(queue.marked, profile.ecn ? queue.passed.packets + queued.packets : 0);
        for (const Amount& now : {queue.passed, queue.dropped, port.ingressDropped}) {
            Amount& last = before[position++];
            EXPECT_TRUE(now.packets >= last.packets && now.bytes >= last.bytes);
            last = now;
        }
        shared[&slot] += queue.shared();
    });
    for (const auto& slot : device.slots()) {
        EXPECT_EQ(slot.sharedUsed, shared[&slot]);
        EXPECT_LE(slot.sharedUsed, slot.sharedSize);
    }
}

Totals run(Device& device, std::chrono::milliseconds time) {
    std::vector<Amount> before;
    Totals totals;
    for (auto step = 0ms; step < time && !testing::Test::HasFailure(); step += 1ms) {
        device.advance(1ms);
        checkState(device, before);
        forEachQueue(device, [&](const auto&, const auto&, const auto& queue, size_t) {
            totals.mostHeadroom = std::max(totals.mostHeadroom, queue.headroom);
        });
    }
    forEachQueue(device, [&](const auto&, const auto& port, const auto& queue, size_t index) {
        totals.passedBytes += queue.passed.bytes;
        (Device::kProfiles[index].lossless() ? totals.losslessDrops : totals.lossyDrops) += queue.dropped.packets;
        totals.ingressDrops += index == 0 ? port.ingressDropped.packets : 0;
        totals.marked += queue.marked;
        totals.bursts += queue.bursts;
    });
    return totals;
}

TEST(SimulatedDevice, ConservesAndDropsByLoad) {
    struct Case {
        uint32_t load;
        uint64_t leastPercent, mostPercent;  // of the ports' rate that passes
        bool drops, ingressDrops, losslessDrops, headroom, marks;
    };
    for (const Case& expected :
         {Case{0, 0, 0, false, false, false, false, false}, Case{20, 15, 25, false, false, false, false, false},
          Case{90, 70, 95, true, true, false, true, true}, Case{150, 95, 100, true, true, false, true, true},
          Case{400, 98, 100, true, true, true, true, true}}) {
        SCOPED_TRACE("load " + std::to_string(expected.load));
        Device device({.slots = 2, .ports = 4, .load = expected.load, .seed = 1, .startTime = kStart});
        const Totals totals = run(device, 4s);
        const uint64_t capacity = 8 * 4000 * Device::kPortBytesPerMs;
        EXPECT_GE(totals.passedBytes, capacity * expected.leastPercent / 100);
        EXPECT_LE(totals.passedBytes, capacity * expected.mostPercent / 100);
        EXPECT_EQ(totals.lossyDrops > 0, expected.drops) << totals.lossyDrops;
        EXPECT_EQ(totals.ingressDrops > 0, expected.ingressDrops) << totals.ingressDrops;
        EXPECT_EQ(totals.losslessDrops > 0, expected.losslessDrops) << totals.losslessDrops;
        EXPECT_EQ(totals.mostHeadroom > 0, expected.headroom) << totals.mostHeadroom;
        EXPECT_EQ(totals.marked > 0, expected.marks) << totals.marked;
        EXPECT_EQ(totals.bursts > 0, expected.drops) << totals.bursts;
        ASSERT_FALSE(HasFailure());
    }
}

TEST(SimulatedDevice, EveryInterfaceAndSlotIsValidAndUnique) {
    const Device device({.slots = SimOptions::kMaxSlots, .ports = SimOptions::kMaxPorts, .load = 90, .seed = 1});
    std::set<uint32_t> indexes, numbers;
    std::set<std::string> names;
    std::set<int> forms;
    for (const auto& slot : device.slots()) {
        uint32_t first = 0, second = 0, number = 0;
        const int form = std::sscanf(slot.text.c_str(), "%u/%u", &first, &second);
        if (form == 2) {
            ASSERT_EQ(DEVM_DB_GetGlobalSlotIdByLocalSlotId(&number, second, first), 0u) << slot.text;
        } else {
            number = first;
        }
        forms.insert(form);
        EXPECT_EQ(slot.number, number) << slot.text;
        numbers.insert(number);
        for (const auto& port : slot.ports) {
            EXPECT_TRUE(port.ifIndex != 0 && port.ifIndex < 1u << 29 && port.ifName.size() <= 31) << port.ifName;
            indexes.insert(port.ifIndex);
            names.insert(port.ifName);
        }
    }
    EXPECT_EQ(forms, (std::set{1, 2}));
    EXPECT_EQ(numbers.size(), SimOptions::kMaxSlots);
    EXPECT_EQ(indexes.size(), SimOptions::kMaxSlots * SimOptions::kMaxPorts);
    EXPECT_EQ(names.size(), indexes.size());
}

class SimFeedTest : public testing::Test {
  protected:
    ~SimFeedTest() override { std::filesystem::remove_all(directory_); }

    std::string file(const std::string& name) const { return directory_ + "/" + name; }

  private:
    std::string directory_ = [] {
        std::string path = testing::TempDir() + "sim_feed-XXXXXX";
        return std::string(mkdtemp(path.data()));
    }();
};

auto everyTable(qosdb::Store& store) {
    return std::tuple(store.read<row::port_ecn_stat>(), store.read<row::port_buf_stat>(),
                      store.read<row::queue_buf_stat>(), store.read<row::queue_stat>(),
                      store.read<row::queue_drop_stat>(), store.read<row::ing_port_drop_stat>(),
                      store.read<row::tm_chip_buf_stat>(), store.read<row::ing_buf_usage_stat>(),
                      store.read<row::buffer_monitor_result>());
}

TEST_F(SimFeedTest, RowsDependOnSeedAndTimeAlone) {
    const auto rowsOf = [this](const std::string& name, uint64_t seed, std::vector<std::chrono::milliseconds> steps) {
        qosdb::Store store(file(name));
        Device device({.slots = 2, .ports = 3, .load = 120, .seed = seed, .startTime = kStart});
        SimFeed feed(device, store);
        for (const auto step : steps) {
            device.advance(step);
        }
        feed.round();
        return everyTable(store);
    };
    const auto rows = rowsOf("a", 1, {2000ms});
    EXPECT_EQ(rows, rowsOf("b", 1, {1ms, 999ms, 0ms, 1000ms}));
    EXPECT_NE(rows, rowsOf("c", 2, {2000ms}));
    // Other machines, compilers and libraries give the same.
    const auto& first = std::get<std::vector<row::queue_stat>>(rows).front();
    EXPECT_EQ(std::tuple(first.passPackets, first.passBytes, first.dropPackets, first.dropBytes),
              std::tuple(238058u, 49924136u, 95784u, 19497380u));
    EXPECT_EQ(Random(1234567).next(), 6457827717110365317u);
}

// The tables agree with each other and, over two rounds, with time.
TEST_F(SimFeedTest, TablesAgree) {
    using Key = std::pair<uint32_t, uint32_t>;
    qosdb::Store store(file("db"));
    Device device({.slots = 3, .ports = 4, .load = 150, .seed = 7, .startTime = kStart});
    SimFeed feed(device, store);
    std::map<Key, row::queue_stat> before;
    std::map<Key, row::buffer_monitor_result> burstsBefore;
    uint64_t laterBursts = 0;
    for (const auto span : {1500ms, 700ms}) {
        device.advance(span);
        feed.round();
        const auto [ecn, portBuf, queueBuf, queueStat, queueDrop, ingDrop, chips, ingBuf, bursts] = everyTable(store);
        ASSERT_EQ(std::tuple(ecn.size(), portBuf.size(), queueDrop.size(), ingDrop.size(), chips.size()),
                  std::tuple(12u, 12u, 12u, 12u, 3u));
        ASSERT_EQ(std::tuple(queueBuf.size(), queueStat.size(), ingBuf.size()), std::tuple(96u, 96u, 96u));

        const auto ms = static_cast<uint64_t>(span.count());
        std::map<Key, std::pair<uint64_t, uint64_t>> drops;  // bytes and packets
        for (const auto& now : queueStat) {
            const auto& last = before[{now.ifIndex, now.queueId}];
            EXPECT_EQ(now.passPktRate, (now.passPackets - last.passPackets) * 1000 / ms);
            EXPECT_EQ(now.passBytRate, (now.passBytes - last.passBytes) * 1000 / ms);
            EXPECT_EQ(now.dropPktRate, (now.dropPackets - last.dropPackets) * 1000 / ms);
            EXPECT_EQ(now.dropBytRate, (now.dropBytes - last.dropBytes) * 1000 / ms);
            drops[{now.ifIndex, now.queueId}] = {now.dropBytes, now.dropPackets};
            before[{now.ifIndex, now.queueId}] = now;
        }
        for (const auto& port : queueDrop) {
            std::vector<uint64_t> columns, expected = {port.ifIndex};
            row::queue_drop_stat::forEachColumn(port, [&](const auto& field) {
                if constexpr (std::is_integral_v<std::decay_t<decltype(field)>>) {
                    columns.push_back(field);
                }
            });
            for (uint32_t queueId = 0; queueId < 8; ++queueId) {
                const auto [bytes, packets] = drops.at({port.ifIndex, queueId});
                expected.insert(expected.end(), {bytes, packets});
            }
            EXPECT_EQ(columns, expected);
        }

        std::map<uint32_t, uint64_t> usedOfPort, totalOfPort;
        std::map<std::string, uint64_t> usedOfSlot;
        std::map<Key, row::queue_buf_stat> buffers;
        for (const auto& queue : queueBuf) {
            EXPECT_TRUE(queue.peakUsed >= queue.curUsed && queue.peakUsed >= queue.avgUsed && queue.avgUsed > 0);
            EXPECT_LE(queue.peakUsed, queue.totalBuf);
            usedOfPort[queue.ifIndex] += queue.curUsed;
            totalOfPort[queue.ifIndex] += queue.totalBuf;
            usedOfSlot[queue.slotIdStr] += queue.curUsed;
            buffers[{queue.ifIndex, queue.queueId}] = queue;
        }
        for (const auto& port : portBuf) {
            EXPECT_EQ(std::tuple(port.currentUsed, port.totalBuff),
                      std::tuple(usedOfPort[port.ifIndex], totalOfPort[port.ifIndex]));
            EXPECT_EQ(port.totalBuff, port.currentUsed + port.remained);
            EXPECT_TRUE(port.peakUsed >= port.currentUsed && port.peakUsed >= port.avgUsed && port.avgUsed > 0);
        }
        for (const auto& chip : chips) {
            EXPECT_EQ(chip.usedBuf, usedOfSlot[chip.slotId]);
            EXPECT_TRUE(chip.usedBuf > 0 && chip.usedBuf <= chip.totalBuf);
            EXPECT_EQ(chip.usedPct, chip.usedBuf * 100 / chip.totalBuf);
        }
        for (const auto& queue : ingBuf) {
            const auto& buffer = buffers.at({queue.if_index, queue.queue});
            EXPECT_EQ(buffer.curUsed, queue.current_guaranteed + queue.current_buffer + queue.current_headroom);
            EXPECT_EQ(buffer.totalBuf, queue.total_guaranteed + queue.total_buffer + queue.total_headroom);
            EXPECT_EQ(queue.is_lossless != 0, queue.total_headroom > 0);
            EXPECT_EQ(std::tuple(queue.is_lossless != 0, queue.is_pfc_dynamic != 0),
                      std::tuple(queue.queue == 3 || queue.queue == 4, queue.queue == 4));
        }

        EXPECT_FALSE(bursts.empty());
        for (const auto& burst : bursts) {
            const uint64_t total = buffers.at({burst.if_index, burst.queue_index}).totalBuf;
            const auto time = [](uint64_t seconds, uint32_t milliseconds) {
                EXPECT_LT(milliseconds, 1000u);
                return std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000 + milliseconds));
            };
            const auto start = time(burst.start_time_stamp, burst.start_milli_second);
            const auto peak = time(burst.peak_time_stamp, burst.peak_milli_second);
            const auto end = time(burst.time_stamp, burst.milli_second);
            EXPECT_TRUE(kStart < start && start <= peak && peak < end && end <= kStart + 2200ms);
            EXPECT_TRUE(burst.peak_used_buf >= burst.start_used_buf && burst.start_used_buf > total / 2 &&
                        burst.used_buf <= total / 2);
            EXPECT_EQ(std::tuple(burst.percent, burst.start_percent, burst.peak_percent),
                      std::tuple(burst.used_buf * 100ull / total, burst.start_used_buf * 100ull / total,
                                 burst.peak_used_buf * 100ull / total));
            auto& last = burstsBefore[{burst.if_index, burst.queue_index}];
            EXPECT_GE(burst.burst_number, std::max(last.burst_number, 1u));
            if (burst.burst_number == last.burst_number) {
                EXPECT_EQ(burst, last);
            } else {
                laterBursts += last.burst_number > 0;
            }
            last = burst;
        }
    }
    EXPECT_GT(laterBursts, 0u);
}

}  // namespace
}  // namespace feed
