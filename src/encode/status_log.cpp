#include "encode/status_log.h"

#include "nivex_qos/log.h"

namespace {

constexpr uint32_t kRepeatsPerLine = 600;

constexpr const char* kStatusText[QOS_TLM_ENC_STATUS_NUM] = {
    "Succeeded",        "Validation failed",   "Memory allocation failed", "CJson function call error",
    "Wrap data failed", "Length exceed limit", "Trundix function error",   "Unexpected error occurred",
};

// What the log remembers of a status: the site logged last, and how often it came again since.
struct Throttle {
    uint32_t site;
    uint32_t repeats;
};

Throttle throttles[QOS_TLM_ENC_STATUS_NUM];

}  // namespace

void QOS_TLM_LogEncode(uint32_t status, uint64_t value, uint32_t site) {
    if (status == QOS_TLM_ENC_SUCCESS || status >= QOS_TLM_ENC_STATUS_NUM) {
        return;
    }
    Throttle& throttle = throttles[status];
    if (throttle.site == site && ++throttle.repeats < kRepeatsPerLine) {
        return;
    }
    throttle = {site, 0};
    QOS_TLM_DiagErr("[TLM Encode] %s, value=%llu, line=%u", kStatusText[status], static_cast<unsigned long long>(value),
                    site);
}
