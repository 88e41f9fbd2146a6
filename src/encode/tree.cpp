#include "nivex_qos/tree.h"

#include <cstring>
#include <new>

#include "nivex_qos/encode.h"
#include "nivex_qos/log.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "support/own_function.h"

QOS_TLM_OWN_FUNCTION(QOS_TLM_AddChild);

namespace {

// A node of the host's memory with these fields; the rest is 0.
QosTlmNode* newNode(uint32_t isLeaf, const QosTlmNodeData& data, uint16_t repeatType = 0) {
    void* block = NIVEX_AllocBuff(sizeof(QosTlmNode));
    return block == nullptr ? nullptr : new (block) QosTlmNode{isLeaf, data, repeatType, nullptr, nullptr, nullptr};
}

void append(QosTlmNode& parent, QosTlmNode* child) {
    (parent.firstChild == nullptr ? parent.firstChild : parent.lastChild->next) = child;
    parent.lastChild = child;
}

void appendByName(QosTlmNode* parent, QosTlmNode* child) {
    if (QOS_TLM_IS_OWN(QOS_TLM_AddChild)) {
        append(*parent, child);
    } else {
        QOS_TLM_AddChild(parent, child);
    }
}

// The three adds of numbers differ in nothing but their type, its size and their messages.
uint32_t addNumber(QosTlmNode* parent, const char* name, QosTlmValueType type, uint64_t value, uint32_t valueLen,
                   uint32_t fieldNumber, const char* noParent, const char* noMemory) {
    if (parent == nullptr) {
        QOS_TLM_DiagErr("%s", noParent);
        return 1;
    }
    QosTlmNode* leaf = newNode(1, {name, static_cast<uint32_t>(type), fieldNumber, value, valueLen});
    if (leaf == nullptr) {
        QOS_TLM_DiagErr("%s", noMemory);
        return 1;
    }
    appendByName(parent, leaf);
    return 0;
}

}  // namespace

QosTlmNode* QOS_TLM_CreateNode(const char* name, uint32_t fieldNumber, uint16_t repeatType) {
    return newNode(0, {name, 0, fieldNumber, 0, 0}, repeatType);
}

void QOS_TLM_AddChild(QosTlmNode* parent, QosTlmNode* child) {
    if (parent != nullptr && child != nullptr) {
        append(*parent, child);
    }
}

uint32_t QOS_TLM_AddChildString(QosTlmNode* parent, const char* name, const char* value, uint32_t fieldNumber) {
    if (parent == nullptr || value == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildString] para error.");
        return 1;
    }
    QosTlmNode* leaf = newNode(1, {name, QOS_TLM_VALUE_STRING, fieldNumber, 0, 0});
    if (leaf == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildString] malloc failed.");
        return 1;
    }
    // Without its copy the leaf stays in the tree, so that validation refuses the sample instead of losing a field.
    uint32_t length = 0;
    const char* copy = QOS_TLM_ConvertToStr(value, &length);
    leaf->data.value = reinterpret_cast<uintptr_t>(copy);
    leaf->data.valueLen = (copy != nullptr ? length : static_cast<uint32_t>(strlen(value))) + 1;
    appendByName(parent, leaf);
    return 0;
}

uint32_t QOS_TLM_AddChildBool(QosTlmNode* parent, const char* name, uint32_t value, uint32_t fieldNumber) {
    return addNumber(parent, name, QOS_TLM_VALUE_BOOL, value, 1, fieldNumber, "[TLM AddChildBool] root is null.",
                     "[TLM AddChildBool] malloc failed.");
}

uint32_t QOS_TLM_AddChildUint32(QosTlmNode* parent, const char* name, uint32_t value, uint32_t fieldNumber) {
    return addNumber(parent, name, QOS_TLM_VALUE_UINT32, value, sizeof value, fieldNumber,
                     "[TLM AddChildUint32] root is null.", "[TLM AddChildUint32] malloc failed.");
}

uint32_t QOS_TLM_AddChildUint64(QosTlmNode* parent, const char* name, uint64_t value, uint32_t fieldNumber) {
    return addNumber(parent, name, QOS_TLM_VALUE_UINT64, value, sizeof value, fieldNumber,
                     "[TLM AddChildUint64] root is null.", "[TLM AddChildUint64] malloc failed.");
}

void QOS_TLM_ReleaseNode(QosTlmNode* node) {
    while (node != nullptr) {
        if (node->firstChild != nullptr) {
            QOS_TLM_ReleaseNode(node->firstChild);
        }
        QosTlmNode* next = node->next;
        if (node->data.valueType == QOS_TLM_VALUE_STRING && node->data.value != 0) {
            NIVEX_FreeBuff(reinterpret_cast<void*>(static_cast<uintptr_t>(node->data.value)));
        }
        NIVEX_FreeBuff(node);
        node = next;
    }
}

char* QOS_TLM_ConvertToStr(const char* src, uint32_t* outLen) {
    if (src == nullptr) {
        return nullptr;
    }
    const auto length = static_cast<uint32_t>(strlen(src));
    const uint32_t size = length + 1;
    auto* copy = static_cast<char*>(NIVEX_AllocBuff(size));
    if (copy == nullptr) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_MALLOC_FAIL, size, 423);
        return nullptr;
    }
    if (strcpy_s(copy, size, src) != 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_SAFE_FUNC_FAIL, size, 429);
        NIVEX_FreeBuff(copy);
        return nullptr;
    }
    copy[length] = '\0';
    if (outLen != nullptr) {
        *outLen = length;
    }
    return copy;
}
