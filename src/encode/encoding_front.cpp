#include "encode/status_log.h"
#include "nivex_qos/log.h"
#include "support/by_name.h"

QOS_TLM_BY_NAME(validateByName, QOS_TLM_ValidateTree);

void* QOS_TLM_Encoding(const QosTlmNode* top, uint32_t encodeType, uint32_t* outLen) {
    if (top == nullptr || outLen == nullptr || encodeType >= QOS_TLM_ENCODE_TYPE_NUM) {
        return nullptr;
    }
    const uint32_t result = QOS_TLM_ValidateTree(top);
    if (result != 0) {
        QOS_TLM_DiagErr("[Tlm Encoding] validate tree failed, ret=%u.", result);
        qos::logAt(qos::site::kTreeNotValid);
        return nullptr;
    }
    return g_qosTlmEncodeFunc[encodeType].encode(top, outLen);
}

uint32_t QOS_TLM_EstimatePackageSize(const QosTlmNode* top, uint32_t encodeType) {
    if (top == nullptr || encodeType >= QOS_TLM_ENCODE_TYPE_NUM) {
        return 0;
    }
    return g_qosTlmEncodeFunc[encodeType].estimate(top);
}

// The two faults that the tree operations let through: a null name, and a string leaf whose text was not copied.
uint32_t QOS_TLM_ValidateTree(const QosTlmNode* node) {
    for (; node != nullptr; node = node->next) {
        const bool lacksText = node->data.valueType == QOS_TLM_VALUE_STRING && node->data.value == 0;
        if (node->data.name == nullptr || lacksText ||
            (node->firstChild != nullptr && validateByName(node->firstChild) != 0)) {
            return 1;
        }
    }
    return 0;
}
