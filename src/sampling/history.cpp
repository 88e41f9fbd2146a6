#include <bit>
#include <cstring>

#include "nivex_qos/tracking.h"
#include "sampling/clock.h"

QosTlmHisSlot g_qosTlmHisData[QOS_TLM_TRACK_SLOT_NUM] = {};
QosTlmStatTimeSlot g_qosTlmStatTime[QOS_TLM_TRACK_SLOT_NUM] = {};

namespace {

bool hasCell(uint32_t subIndex, uint32_t familyIndex) {
    return subIndex < QOS_TLM_TRACK_SUB_INDEX_NUM && familyIndex < QOS_TLM_TRACK_FAMILY_NUM;
}

// The slots of a table, with an index of their keys: a free slot has key 0, and slots are taken in order.
//
// The tables are everybody's to see, and so to change; the index believes itself only as far as the slots bear it out,
// and is made anew where they do not.
template <class Slot>
class Slots {
  public:
    constexpr explicit Slots(Slot (&slots)[QOS_TLM_TRACK_SLOT_NUM]) : slots_(slots) {}

    // The slot of a key, or the first free one, or null when all slots hold other keys.
    Slot* find(uint32_t key) {
        if ((taken_ < QOS_TLM_TRACK_SLOT_NUM && slots_[taken_].key != 0) ||
            (taken_ > 0 && slots_[taken_ - 1].key != lastKey_)) {
            index();
        }
        if (key != 0) {
            for (uint32_t cell = homeOf(key); index_[cell] != 0; cell = next(cell)) {
                Slot& slot = slots_[index_[cell] - 1];
                if (slot.key == key) {
                    return &slot;
                }
            }
        }
        return taken_ < QOS_TLM_TRACK_SLOT_NUM ? &slots_[taken_] : nullptr;
    }

    // Takes a slot that find() answered. With key 0 it stays free.
    void take(Slot& slot, uint32_t key) {
        if (slot.key == 0 && key != 0) {
            slot.key = key;
            add(key);
        }
    }

  private:
    static constexpr uint32_t kCells = 2 * QOS_TLM_TRACK_SLOT_NUM;

    static constexpr uint32_t homeOf(uint32_t key) { return (key * 0x9E3779B1U) >> (32 - std::bit_width(kCells - 1)); }
    static constexpr uint32_t next(uint32_t cell) { return (cell + 1) % kCells; }

    void add(uint32_t key) {
        uint32_t cell = homeOf(key);
        while (index_[cell] != 0) {
            cell = next(cell);
        }
        index_[cell] = static_cast<uint16_t>(++taken_);
        lastKey_ = key;
    }

    void index() {
        taken_ = 0;
        memset(index_, 0, sizeof index_);
        while (taken_ < QOS_TLM_TRACK_SLOT_NUM && slots_[taken_].key != 0) {
            add(slots_[taken_].key);
        }
    }

    Slot (&slots_)[QOS_TLM_TRACK_SLOT_NUM];
    uint32_t taken_ = 0;
    uint32_t lastKey_ = 0;         // of the last taken slot
    uint16_t index_[kCells] = {};  // slot number + 1, at the first free cell from its key's home on; 0: none
};

constinit Slots<QosTlmHisSlot> history(g_qosTlmHisData);
constinit Slots<QosTlmStatTimeSlot> periods(g_qosTlmStatTime);

}  // namespace

void QOS_TLM_IntegerHash(uint64_t* digest, uint64_t value) {
    if (digest != nullptr) {
        *digest = value ^ std::rotr(*digest, 55);
    }
}

uint32_t QOS_TLM_IsRedundantData(uint32_t key, uint32_t subIndex, uint64_t digest, uint32_t familyIndex) {
    QosTlmHisSlot* slot = hasCell(subIndex, familyIndex) ? history.find(key) : nullptr;
    if (slot == nullptr) {
        return 0;
    }
    uint64_t& stored = slot->digest[subIndex][familyIndex];
    if (slot->key != 0 && stored == digest) {
        return 1;
    }
    history.take(*slot, key);
    stored = digest;
    return 0;
}

uint32_t QOS_TLM_IsOverPeriod(uint32_t key, uint32_t subIndex, uint32_t familyIndex, uint32_t period) {
    if (!hasCell(subIndex, familyIndex)) {
        return 0;
    }
    const uint32_t now = qos::nowSec();
    QosTlmStatTimeSlot* slot = periods.find(key);
    if (slot == nullptr) {
        return 0;
    }
    uint32_t& started = slot->time[subIndex][familyIndex];
    const bool known = slot->key != 0;
    if (known && now - started <= period) {
        return 0;
    }
    periods.take(*slot, key);
    started = qos::nowSec();
    return known ? 1 : 0;
}
