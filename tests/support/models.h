/*
 * Chance, and plain models of what the plug-in keeps, for the tests that compare it with them.
 */
#ifndef TESTS_SUPPORT_MODELS_H
#define TESTS_SUPPORT_MODELS_H

#include <regex.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/plugin.h"

struct Dice {
    std::mt19937 random_;

    explicit Dice(uint32_t seed) : random_(seed) {}
    uint32_t below(size_t limit) { return static_cast<uint32_t>(random_() % limit); }
    std::string pick(const std::string& from, size_t count) {
        std::string text(count, '\0');
        std::generate(text.begin(), text.end(), [&] { return from[below(from.size())]; });
        return text;
    }
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

// An interface-name pattern as the regular-expression library understands it.
class PatternModel {
  public:
    explicit PatternModel(const std::string& pattern) {
        std::string expression = "^";
        for (const char character : pattern) {
            expression += character == '*' ? std::string("([0-9]*)") : std::string(1, character);
        }
        compiles_ = regcomp(&compiled_, (expression + "$").c_str(), REG_EXTENDED | REG_ICASE) == 0;
    }
    PatternModel(const PatternModel&) = delete;
    PatternModel& operator=(const PatternModel&) = delete;
    ~PatternModel() {
        if (compiles_) {
            regfree(&compiled_);
        }
    }
    bool matches(const std::string& name) const {
        regmatch_t where;
        return compiles_ && regexec(&compiled_, name.c_str(), 1, &where, 0) == 0;
    }

  private:
    regex_t compiled_;
    bool compiles_;
};

// The cells of the first 256 keys. Key 0 uses those of the slot that the next new key will get.
template <class Value>
struct TrackingModel {
    std::map<uint32_t, size_t> slots;
    Value cells[QOS_TLM_TRACK_SLOT_NUM][QOS_TLM_TRACK_SUB_INDEX_NUM][QOS_TLM_TRACK_FAMILY_NUM]{};

    // The cell, null where there is none, and whether the key was known.
    std::pair<Value*, bool> find(uint32_t key, uint32_t sub, uint32_t family) {
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
        return {&cells[slot][sub][family], known};
    }
    // From here on what the plug-in holds.
    template <class Slot, class Cells>
    void adopt(const Slot (&table)[QOS_TLM_TRACK_SLOT_NUM], Cells Slot::*member) {
        slots.clear();
        for (size_t slot = 0; slot < QOS_TLM_TRACK_SLOT_NUM; ++slot) {
            memcpy(cells[slot], table[slot].*member, sizeof cells[slot]);
            if (table[slot].key != 0) {
                slots.emplace(table[slot].key, slot);
            }
        }
    }
    template <class Slot, class Cells>
    void expectSame(const Slot (&table)[QOS_TLM_TRACK_SLOT_NUM], Cells Slot::*member) const {
        std::vector<uint32_t> keys(QOS_TLM_TRACK_SLOT_NUM);
        std::for_each(slots.begin(), slots.end(), [&](const auto& slot) { keys[slot.second] = slot.first; });
        for (size_t slot = 0; slot < QOS_TLM_TRACK_SLOT_NUM; ++slot) {
            EXPECT_EQ(table[slot].key, keys[slot]) << "slot " << slot;
            EXPECT_EQ(memcmp(table[slot].*member, cells[slot], sizeof cells[slot]), 0) << "cells of slot " << slot;
        }
    }
};

struct MemoryModel {
    TrackingModel<uint64_t> history;
    TrackingModel<uint32_t> times;

    uint32_t isRedundant(uint32_t key, uint32_t sub, uint64_t digest, uint32_t family) {
        const auto [cell, known] = history.find(key, sub, family);
        return cell != nullptr && std::exchange(*cell, digest) == digest && known ? 1 : 0;
    }
    uint32_t isOverPeriod(uint32_t key, uint32_t sub, uint32_t family, uint32_t period) {
        const auto now = static_cast<uint32_t>(fake::platform.nowMs / 1000);
        const auto [cell, known] = times.find(key, sub, family);
        if (cell == nullptr || (known && now - *cell <= period)) {
            return 0;
        }
        *cell = now;
        return known ? 1 : 0;
    }
    void adopt() {
        history.adopt(GLOBAL(g_qosTlmHisData), &QosTlmHisSlot::digest);
        times.adopt(GLOBAL(g_qosTlmStatTime), &QosTlmStatTimeSlot::time);
    }
    void expectSame() const {
        history.expectSame(GLOBAL(g_qosTlmHisData), &QosTlmHisSlot::digest);
        times.expectSame(GLOBAL(g_qosTlmStatTime), &QosTlmStatTimeSlot::time);
    }
};

#endif
