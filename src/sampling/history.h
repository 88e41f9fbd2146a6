/*
 * A look at the history and period tables that can be taken back.
 */
#ifndef SRC_SAMPLING_HISTORY_H
#define SRC_SAMPLING_HISTORY_H

#include "nivex_qos/tracking.h"

namespace qos {

// What both tables hold of one cell, at the moment of making; restore() makes them hold it again.
class TrackingMark {
  public:
    TrackingMark() = default;  // of nothing
    TrackingMark(uint32_t key, uint32_t subIndex, uint32_t familyIndex);
    void restore() const;

  private:
    QosTlmHisSlot* history_ = nullptr;
    QosTlmStatTimeSlot* period_ = nullptr;
    uint32_t historyKey_ = 0;  // 0: the slot was free
    uint32_t periodKey_ = 0;
    uint32_t subIndex_ = 0;
    uint32_t familyIndex_ = 0;
    uint64_t digest_ = 0;
    uint32_t time_ = 0;
};

}  // namespace qos

#endif
