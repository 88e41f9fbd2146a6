// The simulated device's laws of conservation, its promises on loss, and that the tables made of it can be had again.
// Those agree with each other: tables_agree.sh.
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
        totals.bursts += port.bursts[index].ended;
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

}  // namespace
}  // namespace feed
