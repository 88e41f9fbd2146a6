#include "encode/gpb_writer.h"
#include "encode/tree.h"
#include "nivex_qos/encode.h"
#include "nivex_qos/gpb.h"
#include "nivex_qos/json.h"
#include "nivex_qos/log.h"
#include "nivex_qos/sample.h"
#include "support/own_function.h"

QOS_TLM_OWN_FUNCTION(QOS_TLM_ValidateTree);

namespace {

constexpr uint32_t kEncodeTypeNum = 2;
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

void* refuse(uint32_t result) {
    QOS_TLM_DiagErr("[Tlm Encoding] validate tree failed, ret=%u.", result);
    QOS_TLM_LogEncode(QOS_TLM_ENC_VALIDATE_FAIL, 0, 530);
    return nullptr;
}

}  // namespace

const QosTlmEncodeFuncEntry g_qosTlmEncodeFunc[kEncodeTypeNum] = {
    {QOS_TLM_EncodeProto, QOS_TLM_EstimatePackageSizeProto},
    {QOS_TLM_EncodeJson, QOS_TLM_EstimatePackageSizeJson},
};

void* QOS_TLM_Encoding(const QosTlmNode* top, uint32_t encodeType, uint32_t* outLen) {
    if (top == nullptr || outLen == nullptr || encodeType >= kEncodeTypeNum) {
        return nullptr;
    }
    if (encodeType == QOS_TLM_ENCODE_GPB && QOS_TLM_IS_OWN(QOS_TLM_ValidateTree) && qos::writesGpbItself()) {
        const std::optional size = qos::validGpbSize(top);
        return size ? qos::encodeGpb(top, *size, outLen) : refuse(1);
    }
    const uint32_t result = QOS_TLM_ValidateTree(top);
    return result == 0 ? g_qosTlmEncodeFunc[encodeType].encode(top, outLen) : refuse(result);
}

uint32_t QOS_TLM_EstimatePackageSize(const QosTlmNode* top, uint32_t encodeType) {
    if (top == nullptr || encodeType >= kEncodeTypeNum) {
        return 0;
    }
    return g_qosTlmEncodeFunc[encodeType].estimate(top);
}

uint32_t QOS_TLM_ValidateTree(const QosTlmNode* node) {
    for (; node != nullptr; node = node->next) {
        if (!qos::isValid(node->data)) {
            return 1;
        }
        if (node->firstChild != nullptr && QOS_TLM_ValidateTree(node->firstChild) != 0) {
            return 1;
        }
    }
    return 0;
}

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
