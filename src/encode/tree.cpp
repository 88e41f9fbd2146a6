#include "nivex_qos/tree.h"

#include <cstring>

#include "encode/status_log.h"
#include "encode/tree.h"
#include "nivex_qos/log.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "support/by_name.h"

QOS_TLM_BY_NAME(releaseByName, QOS_TLM_ReleaseNode);

namespace {

// A node of the host's memory with these fields; the rest is 0, padding included.
QosTlmNode* newNode(uint32_t isLeaf, const QosTlmNodeData& data, uint16_t repeatType = 0) {
    auto* node = static_cast<QosTlmNode*>(NIVEX_AllocBuff(sizeof(QosTlmNode)));
    if (node != nullptr) {
        memset(node, 0, sizeof *node);
        node->isLeaf = isLeaf;
        node->data.name = data.name;
        node->data.valueType = data.valueType;
        node->data.fieldNumber = data.fieldNumber;
        node->data.value = data.value;
        node->data.valueLen = data.valueLen;
        node->repeatType = repeatType;
    }
    return node;
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
    QOS_TLM_AddChild(parent, leaf);
    return 0;
}

}  // namespace

QosTlmNode* QOS_TLM_CreateNode(const char* name, uint32_t fieldNumber, uint16_t repeatType) {
    return newNode(0, {name, 0, fieldNumber, 0, 0}, repeatType);
}

void QOS_TLM_AddChild(QosTlmNode* parent, QosTlmNode* child) {
    if (parent == nullptr || child == nullptr) {
        return;
    }
    (parent->firstChild == nullptr ? parent->firstChild : parent->lastChild->next) = child;
    parent->lastChild = child;
}

uint32_t QOS_TLM_AddChildString(QosTlmNode* parent, const char* name, const char* value, uint32_t fieldNumber) {
    if (parent == nullptr || value == nullptr) {
        QOS_TLM_DiagErr("[TLM AddChildString] para error.");
        return 1;
    }
    const auto valueLen = static_cast<uint32_t>(strlen(value)) + 1;
    QosTlmNode* leaf = newNode(1, {name, QOS_TLM_VALUE_STRING, fieldNumber, 0, valueLen});
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
            releaseByName(node->firstChild);
        }
        QosTlmNode* next = node->next;
        if (node->data.valueType == QOS_TLM_VALUE_STRING && node->data.value != 0) {
            NIVEX_FreeBuff(qos::textOf(node->data));
        }
        memset(node, 0, sizeof *node);  // a sample's values do not go back to the host's allocator
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
        qos::logAt(qos::site::kNoTextBlock, size);
        return nullptr;
    }
    if (strcpy_s(copy, size, src) != 0) {
        qos::logAt(qos::site::kTextNotCopied, size);
        NIVEX_FreeBuff(copy);
        return nullptr;
    }
    copy[length] = '\0';
    if (outLen != nullptr) {
        *outLen = length;
    }
    return copy;
}
