#include "devhost/feed/buffer_history.h"

#include <algorithm>
#include <limits>

namespace feed {

void UsageHistory::add(uint64_t used) {
    peak_ = std::max(peak_, used);
    sum_ += used;
    ++readings_;
}

uint64_t UsageHistory::average() const {
    return readings_ == 0 ? 0 : (sum_ + readings_ / 2) / readings_;
}

void BurstMonitor::add(uint32_t used, uint64_t total, WallTime time) {
    const uint64_t percent = total == 0 ? 0 : uint64_t{used} * 100 / total;
    const auto narrowPercent = static_cast<uint32_t>(std::min<uint64_t>(percent, std::numeric_limits<uint32_t>::max()));
    const Burst::Moment moment = {used, narrowPercent, time};
    const bool above = total != 0 && used > total / 2;
    if (!above) {
        if (current_) {
            current_->end = moment;
            last_ = current_;
            current_.reset();
        }
    } else if (!current_) {
        current_ = {moment, moment, {}, ++bursts_};
    } else if (used > current_->peak.used) {
        current_->peak = moment;
    }
}

}  // namespace feed
