#include "sampling/batch_room.h"

#include <cstring>

#include "nivex_qos/gpb.h"
#include "nivex_qos/json.h"

namespace {

// cJSON prints whole numbers below 10^15 digit by digit; above, with up to 17 digits, point and exponent.
constexpr uint64_t kLongNumber = 1000000000000000;
constexpr uint32_t kLongNumberLen = 24;

uint32_t batchPolicy = QOS_TLM_BATCH_BY_COUNT;

uint32_t decimalLength(uint64_t value) {
    uint32_t length = 1;
    for (; value >= 10; value /= 10) {
        ++length;
    }
    return length;
}

uint32_t jsonTextBound(const char* text) {
    uint32_t length = 2;
    for (; *text != '\0'; ++text) {
        const auto c = static_cast<unsigned char>(*text);
        length += c < 0x20 ? 6 : c == '"' || c == '\\' ? 2 : 1;
    }
    return length;
}

uint32_t jsonValueBound(const QosTlmNodeData& leaf) {
    switch (leaf.valueType) {
        case QOS_TLM_VALUE_BOOL:
            return sizeof "false" - 1;
        case QOS_TLM_VALUE_STRING:
            return leaf.value == 0 ? 2
                                   : jsonTextBound(reinterpret_cast<const char*>(static_cast<uintptr_t>(leaf.value)));
        default:
            return leaf.value < kLongNumber ? decimalLength(leaf.value) : kLongNumberLen;
    }
}

// "name": with the quotes and the colon.
uint32_t jsonNameLength(const QosTlmNode& node) {
    return static_cast<uint32_t>(strlen(node.data.name)) + 3;
}

// Braces and a comma for the entry, a comma for each leaf.
uint32_t jsonEntryBound(const QosTlmNode* entry) {
    uint32_t length = 3;
    for (const QosTlmNode* leaf = entry->firstChild; leaf != nullptr; leaf = leaf->next) {
        length += jsonNameLength(*leaf) + jsonValueBound(leaf->data) + 1;
    }
    return length;
}

// The document's braces, and name and brackets of each inner node: a tree without entries is a single line of them.
uint32_t jsonFrameLength(const QosTlmNode* root) {
    uint32_t length = 2;
    for (const QosTlmNode* node = root; node != nullptr; node = node->firstChild) {
        length += jsonNameLength(*node) + 2;
    }
    return length;
}

uint32_t gpbSize(const QosTlmNode* root, uint32_t entriesSize) {
    return QOS_TLM_GetProtoStructSize(root->data.fieldNumber,
                                      QOS_TLM_GetProtoStructSize(root->firstChild->data.fieldNumber, entriesSize));
}

}  // namespace

uint32_t QOS_TLM_SetBatchPolicy(uint32_t policy) {
    if (policy > QOS_TLM_BATCH_BY_PAYLOAD) {
        return 1;
    }
    batchPolicy = policy;
    return 0;
}

qos::BatchRoom::BatchRoom(bool endsByPayload, uint32_t encodeType, const QosTlmNode* root)
    : limited_(endsByPayload || batchPolicy == QOS_TLM_BATCH_BY_PAYLOAD),
      json_(encodeType == QOS_TLM_ENCODE_JSON),
      root_(root),
      size_(limited_ && json_ ? jsonFrameLength(root) : 0) {}

bool qos::BatchRoom::takesLimited(const QosTlmNode* entry) {
    if (!json_) {
        size_ += QOS_TLM_CalcProtoSizeRecursive(entry);
        return gpbSize(root_, size_) <= QOS_TLM_PAYLOAD_SIZE;
    }
    size_ += jsonEntryBound(entry);
    if (size_ > QOS_TLM_PAYLOAD_SIZE) {
        // The bound says that it may not fit: measure, and go on from the exact length.
        const uint32_t exact = QOS_TLM_EstimatePackageSizeJson(root_);
        size_ = exact != 0 ? exact : size_;
    }
    return size_ <= QOS_TLM_PAYLOAD_SIZE;
}
