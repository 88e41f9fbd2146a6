#include "nivex_qos/tree.h"

#include <cstring>

#include "nivex_qos/encode.h"
#include "nivex_qos/log.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"

namespace {

QosTlmNode* newNode() {
    void* block = NIVEX_AllocBuff(sizeof(QosTlmNode));
    return block == nullptr ? nullptr : static_cast<QosTlmNode*>(memset(block, 0, sizeof(QosTlmNode)));
}

QosTlmNode* newLeaf(const char* name, QosTlmValueType type, uint32_t fieldNumber, uint64_t value, uint32_t valueLen) {
    QosTlmNode* leaf = newNode();
    if (leaf != nullptr) {
        leaf->isLeaf = 1;
        leaf->data = {name, static_cast<uint32_t>(type), fieldNumber, value, valueLen};
    }
    return leaf;
}

// The three adds of numbers differ in nothing but their type and their messages.
uint32_t addNumber(QosTlmNode* parent, QosTlmNode* leaf, const char* noMemory) {
    if (leaf == nullptr) {
        QOS_TLM_DiagErr("%s", noMemory);
        return 1;
    }
    QOS_TLM_AddChild(parent, leaf);
    return 0;
}

}  // namespace

QosTlmNode* QOS_TLM_CreateNode(const char* name, uint32_t fieldNumber, uint16_t repeatType) {
    QosTlmNode* node = newNode();
    if (node != nullptr) {
        node->data.name = name;
        node->data.fieldNumber = fieldNumber;
        node->repeatType = repeatType;
    }
    return node;
}

void QOS_TLM_AddChild(QosTlmNode* parent, QosTlmNode* child) {
    if (parent == nullptr || child == nullptr) {
        return;
    }
    if (parent->firstChild == nullptr) {
        parent->firstChild = child;
    } else {
        parent->lastChild->next = child;
    }
    parent->lastChild = child;
}

uint32_t QOS_TLM_AddChildString(QosTlmNode* parent, const char* name, const char* value, uint32_t fieldNumber) {
    if (parent == nullptr || value == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildString] para error.");
        return 1;
    }
    const auto valueLen = static_cast<uint32_t>(strlen(value)) + 1;
    QosTlmNode* leaf = newLeaf(name, QOS_TLM_VALUE_STRING, fieldNumber, 0, valueLen);
    if (leaf == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildString] malloc failed.");
        return 1;
    }
    // Without its copy the leaf stays in the tree, so that validation refuses the sample instead of losing a field.
    leaf->data.value = reinterpret_cast<uintptr_t>(QOS_TLM_ConvertToStr(value, nullptr));
    QOS_TLM_AddChild(parent, leaf);
    return 0;
}

uint32_t QOS_TLM_AddChildBool(QosTlmNode* parent, const char* name, uint32_t value, uint32_t fieldNumber) {
    if (parent == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildBool] root is null.");
        return 1;
    }
    return addNumber(parent, newLeaf(name, QOS_TLM_VALUE_BOOL, fieldNumber, value, 1),
                     "[TLM AddChildBool] malloc failed.");
}

uint32_t QOS_TLM_AddChildUint32(QosTlmNode* parent, const char* name, uint32_t value, uint32_t fieldNumber) {
    if (parent == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildUint32] root is null.");
        return 1;
    }
    return addNumber(parent, newLeaf(name, QOS_TLM_VALUE_UINT32, fieldNumber, value, sizeof value),
                     "[TLM AddChildUint32] malloc failed.");
}

uint32_t QOS_TLM_AddChildUint64(QosTlmNode* parent, const char* name, uint64_t value, uint32_t fieldNumber) {
    if (parent == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildUint64] root is null.");
        return 1;
    }
    return addNumber(parent, newLeaf(name, QOS_TLM_VALUE_UINT64, fieldNumber, value, sizeof value),
                     "[TLM AddChildUint64] malloc failed.");
}

void QOS_TLM_ReleaseNode(QosTlmNode* node) {
    while (node != nullptr) {
        QOS_TLM_ReleaseNode(node->firstChild);
        QosTlmNode* next = node->next;
        if (node->data.valueType == QOS_TLM_VALUE_STRING && node->data.value != 0) {
            NIVEX_FreeBuff(reinterpret_cast<void*>(static_cast<uintptr_t>(node->data.value)));
        }
        memset(node, 0, sizeof *node);
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
