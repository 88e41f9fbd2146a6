#include "sampling/clock.h"

#include <sys/time.h>

#include "nivex_qos/assembly.h"
#include "nivex_qos/log.h"
#include "platform/system_time.h"

namespace {

uint64_t toMs(const KatSystime& time) {
    uint32_t high = 0;
    uint32_t low = 0;
    KAT_SystimeMsSince1970(&time, &high, &low);
    return (static_cast<uint64_t>(high) << 32) | low;
}

struct ReadingPair {
    timeval first;
    timeval second;
};

bool readTwice(ReadingPair& readings) {
    int result = gettimeofday(&readings.first, nullptr);
    if (result == 0) {
        result = gettimeofday(&readings.second, nullptr);
    }
    if (result != 0) {
        QOS_TLM_DiagErr("[Tlm GetSystimeSecUs] get time of day failed, ret=%u.", static_cast<unsigned>(result));
    }
    return result == 0;
}

}  // namespace

uint64_t qos::nowMs() {
    KatSystime now = {};
    KAT_SystimeGet(&now);
    return toMs(now);
}

uint32_t qos::nowSec() {
    KatSystime now = {};
    KAT_SystimeGet(&now);
    uint32_t high = 0;
    uint32_t low = 0;
    KAT_SystimeSecSince1970(&now, &high, &low);
    return low;
}

void QOS_TLM_GetSystimeSecUs(uint32_t* seconds, uint32_t* microseconds) {
    if (seconds == nullptr || microseconds == nullptr) {
        return;
    }
    // Two readings guard against one that was taken while the second changed.
    ReadingPair readings = {};
    if (!readTwice(readings)) {
        return;
    }
    if (readings.first.tv_sec != readings.second.tv_sec && !readTwice(readings)) {
        return;
    }
    *seconds = static_cast<uint32_t>(readings.first.tv_sec);
    *microseconds = static_cast<uint32_t>(readings.first.tv_usec);
}

uint64_t qos::timeSpan(uint32_t startSec, uint32_t startUs, uint32_t endSec, uint32_t endUs) {
    if (endSec < startSec) {
        return 0;
    }
    const uint64_t end = static_cast<uint64_t>(endSec - startSec) * 1000000 + endUs;
    return end < startUs ? 0 : end - startUs;
}

uint64_t QOS_TLM_GetUsToTimeSpend(uint32_t startSec, uint32_t startUs, uint32_t endSec, uint32_t endUs) {
    return qos::timeSpan(startSec, startUs, endSec, endUs);
}

uint64_t QOS_TLM_ConvertSystimeToMs(const KatSystime* time) {
    return time == nullptr ? 0 : toMs(*time);
}

void QOS_TLM_SetCurTime(uint32_t* seconds) {
    if (seconds != nullptr) {
        *seconds = qos::nowSec();
    }
}

void QOS_TLM_SetCollectTime(uint64_t* start, uint64_t* end) {
    if (start == nullptr || end == nullptr) {
        return;
    }
    *start = qos::nowMs();
    *end = *start;
}
