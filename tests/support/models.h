/*
 * Chance, and plain models of what the plug-in keeps, for the tests that compare it with them.
 */
#ifndef TESTS_SUPPORT_MODELS_H
#define TESTS_SUPPORT_MODELS_H

#include <algorithm>
#include <map>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "support/plugin.h"

struct Dice {
    std::mt19937 random_;

    explicit Dice(uint32_t seed) : random_(seed) {}
    uint32_t below(size_t limit) { return static_cast<uint32_t>(random_() % limit); }
    // What may happen to a table between two calls: nothing, or rows move, go, come or are doubled.
    template <class Row, class Make>
    void rearrange(std::vector<Row>& rows, Make makeRow, size_t least = 300) {
        for (uint32_t times = below(4); times > 0 && !rows.empty(); --times) {
            const auto from = rows.begin() + below(rows.size());
            const auto to = below(2) == 0 ? rows.end() : from + std::min<std::ptrdiff_t>(below(20), rows.end() - from);
            switch (below(6)) {
                case 0:
                    std::shuffle(from, to, random_);
                    break;
                case 1:
                    std::reverse(from, to);
                    break;
                case 2:
                    std::rotate(rows.begin(), from, to);
                    break;
                case 3:
                    rows.erase(from, to);
                    break;
                default:
                    rows.insert(from, below(2) == 0 ? makeRow() : Row(rows[below(rows.size())]));
            }
        }
        while (rows.size() < least) {
            rows.insert(rows.begin() + below(rows.size() + 1), makeRow());
        }
    }
};

// The history or the period table as plain maps: the cells of the first 256 keys. Key 0 uses those of the slot that the
// next new key will get.
struct TrackingModel {
    std::map<uint32_t, size_t> slots;                                    // by key
    std::map<std::tuple<size_t, uint32_t, uint32_t>, uint64_t> cells{};  // by slot, sub-index, family; absent: 0

    // The cell, null where there is none, and whether the key was known.
    std::pair<uint64_t*, bool> find(uint32_t key, uint32_t sub, uint32_t family) {
        const auto found = slots.find(key);
        const bool known = found != slots.end();
        const size_t slot = known ? found->second : slots.size();
        if (sub >= QOS_TLM_TRACK_SUB_INDEX_NUM || family >= QOS_TLM_TRACK_FAMILY_NUM ||
            slot == QOS_TLM_TRACK_SLOT_NUM) {
            return {};
        }
        if (key != 0) {
            slots.emplace(key, slot);
        }
        return {&cells[{slot, sub, family}], known};
    }
    uint32_t isRedundant(uint32_t key, uint32_t sub, uint64_t digest, uint32_t family) {
        const auto [cell, known] = find(key, sub, family);
        return cell != nullptr && std::exchange(*cell, digest) == digest && known ? 1 : 0;
    }
    uint32_t isOverPeriod(uint32_t key, uint32_t sub, uint32_t family, uint32_t period, uint32_t now) {
        const auto [cell, known] = find(key, sub, family);
        if (cell == nullptr || (known && static_cast<uint32_t>(now - *cell) <= period)) {
            return 0;
        }
        *cell = now;
        return known ? 1 : 0;
    }
};

struct MemoryModel {
    TrackingModel history;
    TrackingModel times;

    uint32_t isRedundant(uint32_t key, uint32_t sub, uint64_t digest, uint32_t family) {
        return history.isRedundant(key, sub, digest, family);
    }
    uint32_t isOverPeriod(uint32_t key, uint32_t sub, uint32_t family, uint32_t period) {
        return times.isOverPeriod(key, sub, family, period, static_cast<uint32_t>(fake::platform.nowMs / 1000));
    }
    // From here on what the plug-in holds.
    void adopt() {
        history = read(GLOBAL(g_qosTlmHisData), &QosTlmHisSlot::digest);
        times = read(GLOBAL(g_qosTlmStatTime), &QosTlmStatTimeSlot::time);
    }
    void expectSame() const {
        expectSame(history, read(GLOBAL(g_qosTlmHisData), &QosTlmHisSlot::digest));
        expectSame(times, read(GLOBAL(g_qosTlmStatTime), &QosTlmStatTimeSlot::time));
    }

  private:
    template <class Slot, class Cells>
    static TrackingModel read(const Slot (&table)[QOS_TLM_TRACK_SLOT_NUM], Cells Slot::*member) {
        TrackingModel model;
        for (size_t slot = 0; slot < QOS_TLM_TRACK_SLOT_NUM; ++slot) {
            for (uint32_t sub = 0; sub < QOS_TLM_TRACK_SUB_INDEX_NUM; ++sub) {
                for (uint32_t family = 0; family < QOS_TLM_TRACK_FAMILY_NUM; ++family) {
                    model.cells[{slot, sub, family}] = (table[slot].*member)[sub][family];
                }
            }
            if (table[slot].key != 0) {
                model.slots.emplace(table[slot].key, slot);
            }
        }
        return model;
    }
    static void expectSame(TrackingModel model, const TrackingModel& actual) {
        EXPECT_EQ(actual.slots, model.slots);
        for (const auto& [cell, value] : actual.cells) {
            EXPECT_EQ(model.cells[cell], value) << "slot " << std::get<0>(cell) << " sub-index " << std::get<1>(cell)
                                                << " family " << std::get<2>(cell);
        }
    }
};

#endif
