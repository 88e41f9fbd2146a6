#include "nivex_qos/assembly.h"

#include "nivex_qos/encode.h"
#include "nivex_qos/log.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "sampling/clock.h"

namespace {

// Appends an encoding to the payload and frees it, whether it fits or not.
uint32_t store(uint32_t count, const QosTlmEncodeResult& result, QosTlmSampleData& sampleData) {
    const uint32_t used = sampleData.dataLen < QOS_TLM_PAYLOAD_SIZE ? sampleData.dataLen : QOS_TLM_PAYLOAD_SIZE;
    const int copied = memcpy_s(sampleData.data + used, QOS_TLM_PAYLOAD_SIZE - used, result.data, result.dataLen);
    if (copied != 0) {
        QOS_TLM_DiagErr("[Tlm SetSampleData] memcpy error, ret=%d.", copied);
    } else {
        sampleData.collectStartTime = result.collectStartTime;
        sampleData.collectEndTime = result.collectEndTime;
        sampleData.encodeTimeSpend = result.encodeTimeSpend;
        sampleData.thresholdValue = result.thresholdValue;
        sampleData.recordCount = count;
        sampleData.dataLen += result.dataLen;
    }
    NIVEX_FreeBuff(result.data);
    return copied == 0 ? 0 : 1;
}

}  // namespace

void QOS_TLM_EncodingData(const QosTlmNode* root, uint32_t encodeType, uint32_t count, QosTlmSampleData* sampleData) {
    if (count == 0) {
        return;
    }
    QosTlmEncodeResult result = {};
    QOS_TLM_EncodeSampleData(encodeType, root, &result);
    if (result.data == nullptr) {
        return;
    }
    if (sampleData == nullptr) {
        NIVEX_FreeBuff(result.data);
        return;
    }
    store(count, result, *sampleData);
}

uint32_t QOS_TLM_EncodeSampleData(uint32_t encodeType, const QosTlmNode* root, QosTlmEncodeResult* result) {
    if (result == nullptr) {
        return 1;
    }
    uint32_t startSec = 0;
    uint32_t startUs = 0;
    QOS_TLM_GetSystimeSecUs(&startSec, &startUs);
    const bool json = static_cast<uint8_t>(encodeType) == QOS_TLM_ENCODE_JSON;
    result->data = static_cast<uint8_t*>(
        QOS_TLM_Encoding(root, json ? QOS_TLM_ENCODE_JSON : QOS_TLM_ENCODE_GPB, &result->dataLen));
    if (result->data == nullptr) {
        QOS_TLM_DiagErr("[Tlm EncodeSampleData] sampleData data is null.");
        return 1;
    }
    uint32_t endSec = 0;
    uint32_t endUs = 0;
    QOS_TLM_GetSystimeSecUs(&endSec, &endUs);
    result->encodeTimeSpend = qos::timeSpan(startSec, startUs, endSec, endUs);
    result->collectStartTime = qos::nowMs();
    result->collectEndTime = result->collectStartTime;
    return 0;
}

uint32_t QOS_TLM_SetSampleData(uint32_t count, QosTlmEncodeResult* result, QosTlmSampleData* sampleData) {
    if (result == nullptr || sampleData == nullptr || result->data == nullptr) {
        return 1;
    }
    const uint32_t stored = store(count, *result, *sampleData);
    result->data = nullptr;
    return stored;
}
