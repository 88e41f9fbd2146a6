#include "sampling/history.h"

#include <bit>

#include "nivex_qos/tracking.h"
#include "sampling/clock.h"

QosTlmHisSlot g_qosTlmHisData[QOS_TLM_TRACK_SLOT_NUM] = {};
QosTlmStatTimeSlot g_qosTlmStatTime[QOS_TLM_TRACK_SLOT_NUM] = {};

namespace {

bool hasCell(uint32_t subIndex, uint32_t familyIndex) {
    return subIndex < QOS_TLM_TRACK_SUB_INDEX_NUM && familyIndex < QOS_TLM_TRACK_FAMILY_NUM;
}

// The slot of a key, or the first free one, or null when all slots hold other keys. A free slot has key 0.
template <class Slot>
Slot* findSlot(Slot (&slots)[QOS_TLM_TRACK_SLOT_NUM], uint32_t key) {
    for (Slot& slot : slots) {
        if (slot.key == 0 || slot.key == key) {
            return &slot;
        }
    }
    return nullptr;
}

}  // namespace

void QOS_TLM_IntegerHash(uint64_t* digest, uint64_t value) {
    if (digest != nullptr) {
        *digest = value ^ std::rotr(*digest, 55);
    }
}

uint32_t QOS_TLM_IsRedundantData(uint32_t key, uint32_t subIndex, uint64_t digest, uint32_t familyIndex) {
    QosTlmHisSlot* slot = hasCell(subIndex, familyIndex) ? findSlot(g_qosTlmHisData, key) : nullptr;
    if (slot == nullptr) {
        return 0;
    }
    uint64_t& stored = slot->digest[subIndex][familyIndex];
    if (slot->key != 0 && stored == digest) {
        return 1;
    }
    slot->key = key;
    stored = digest;
    return 0;
}

uint32_t QOS_TLM_IsOverPeriod(uint32_t key, uint32_t subIndex, uint32_t familyIndex, uint32_t period) {
    if (!hasCell(subIndex, familyIndex)) {
        return 0;
    }
    const uint32_t now = qos::nowSec();
    QosTlmStatTimeSlot* slot = findSlot(g_qosTlmStatTime, key);
    if (slot == nullptr) {
        return 0;
    }
    uint32_t& started = slot->time[subIndex][familyIndex];
    const bool known = slot->key != 0;
    if (known && now - started <= period) {
        return 0;
    }
    slot->key = key;
    started = qos::nowSec();
    return known ? 1 : 0;
}

qos::TrackingMark::TrackingMark(uint32_t key, uint32_t subIndex, uint32_t familyIndex)
    : subIndex_(subIndex), familyIndex_(familyIndex) {
    if (!hasCell(subIndex, familyIndex)) {
        return;
    }
    history_ = findSlot(g_qosTlmHisData, key);
    if (history_ != nullptr) {
        historyKey_ = history_->key;
        digest_ = history_->digest[subIndex][familyIndex];
    }
    period_ = findSlot(g_qosTlmStatTime, key);
    if (period_ != nullptr) {
        periodKey_ = period_->key;
        time_ = period_->time[subIndex][familyIndex];
    }
}

void qos::TrackingMark::restore() const {
    if (history_ != nullptr) {
        history_->key = historyKey_;
        history_->digest[subIndex_][familyIndex_] = digest_;
    }
    if (period_ != nullptr) {
        period_->key = periodKey_;
        period_->time[subIndex_][familyIndex_] = time_;
    }
}
