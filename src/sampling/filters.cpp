#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "nivex_qos/filter.h"
#include "platform/bounded.h"
#include "platform/device_db.h"
#include "sampling/name_pattern.h"

namespace {

bool passes(const QosTlmThreshold& threshold, uint32_t value) {
    const auto limit = static_cast<uint32_t>(threshold.value);
    switch (threshold.op) {
        case QOS_TLM_OP_EQUAL:
            return value == limit;
        case QOS_TLM_OP_GREATER:
            return value > limit;
        case QOS_TLM_OP_GREATER_EQUAL:
            return value >= limit;
        case QOS_TLM_OP_LESS:
            return value < limit;
        case QOS_TLM_OP_LESS_EQUAL:
            return value <= limit;
        default:
            return false;
    }
}

struct ServiceClass {
    const char* name;
    uint32_t queueId;
};

// Best effort ("be") is queue 0, and so is every unknown name.
constexpr ServiceClass kServiceClasses[] = {
    {"af1", 1}, {"af2", 2}, {"af3", 3}, {"af4", 4}, {"ef", 5}, {"cs6", 6}, {"cs7", 7},
};

}  // namespace

uint32_t QOS_TLM_CheckIfName(const char* pattern, const char* name, uint32_t) {
    return pattern != nullptr && name != nullptr && qos::matches(pattern, name) ? 1 : 0;
}

uint32_t QOS_TLM_ThresholdFilter(const QosTlmQueryParam* request, uint32_t value) {
    if (request == nullptr) {
        return 0;
    }
    const bool first = passes(request->thresholds[0], value);
    if (request->thresholdNum < 2) {
        return first ? 1 : 0;
    }
    const bool second = passes(request->thresholds[1], value);
    switch (request->thresholdRelation) {
        case QOS_TLM_RELATION_AND:
            return first && second ? 1 : 0;
        case QOS_TLM_RELATION_SECOND:
            return second ? 1 : 0;
        default:
            return 0;
    }
}

uint32_t QOS_TLM_ParsesString2Number(const char* text, uint32_t* number) {
    errno = 0;
    if (text == nullptr || number == nullptr) {
        return 1;
    }
    char* end = nullptr;
    const unsigned long value = strtoul(text, &end, 10);
    if (end == text || *end != '\0' || (value == ULONG_MAX && errno == ERANGE)) {
        return 1;
    }
    *number = static_cast<uint32_t>(value);
    return 0;
}

uint32_t QOS_TLM_StrSlot2IntSlot(const char* text, uint32_t* slot) {
    if (text == nullptr || slot == nullptr) {
        return 1;
    }
    if (strchr(text, '/') == nullptr) {
        return QOS_TLM_ParsesString2Number(text, slot);
    }
    uint32_t first = 0;
    uint32_t second = 0;
    if (sscanf_s(text, "%u/%u", &first, &second) < 2) {
        return 1;
    }
    return DEVM_DB_GetGlobalSlotIdByLocalSlotId(slot, second, first);
}

void QOS_TLM_ParsesServiceClassToQueueId(const char* name, uint32_t* queueId) {
    if (name == nullptr || queueId == nullptr) {
        return;
    }
    *queueId = 0;
    for (const ServiceClass& serviceClass : kServiceClasses) {
        if (strcmp(name, serviceClass.name) == 0) {
            *queueId = serviceClass.queueId;
            return;
        }
    }
}
