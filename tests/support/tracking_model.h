/*
 * The history or the period table as plain maps: the cells of the first 256 keys. Key 0 uses those of the slot that the
 * next new key will get.
 */
#ifndef TESTS_SUPPORT_TRACKING_MODEL_H
#define TESTS_SUPPORT_TRACKING_MODEL_H

#include <cstdint>
#include <map>
#include <tuple>
#include <utility>

#include "nivex_qos/tracking.h"

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

#endif
