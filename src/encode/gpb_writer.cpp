#include "nivex_qos/gpb.h"

#include <bit>

#include "nivex_qos/encode.h"
#include "nivex_qos/log.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"

namespace {

constexpr uint32_t kVarintMax = 10;  // seven bits a byte, 64 bits

uint32_t varintSize(uint64_t value) {
    return (static_cast<uint32_t>(std::bit_width(value | 1)) + 6) / 7;
}

uint32_t tagOf(uint32_t fieldNumber, uint32_t wireType) {
    return (fieldNumber << 3) | wireType;
}

// A leaf may come from a direct caller without a text: it then has an empty one.
uint32_t textLength(const QosTlmNodeData& leaf) {
    return leaf.value == 0 || leaf.valueLen == 0 ? 0 : leaf.valueLen - 1;
}

const void* textOf(const QosTlmNodeData& leaf) {
    return reinterpret_cast<const void*>(static_cast<uintptr_t>(leaf.value));
}

uint32_t lengthDelimitedSize(uint32_t fieldNumber, uint32_t length) {
    return varintSize(tagOf(fieldNumber, 0)) + varintSize(length) + length;
}

uint32_t writeVarint(uint64_t value, uint8_t* dest, uint32_t room) {
    uint8_t bytes[kVarintMax];
    uint32_t count = 0;
    while (value >= 0x80) {
        bytes[count++] = static_cast<uint8_t>(value | 0x80);
        value >>= 7;
    }
    bytes[count++] = static_cast<uint8_t>(value);
    if (count > room) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_LEN_EXCEED, value, 174);
        return 0;
    }
    if (memcpy_s(dest, room, bytes, count) != 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_SAFE_FUNC_FAIL, room, 179);
        return 0;
    }
    return count;
}

}  // namespace

uint32_t QOS_TLM_CalcProtoIntSize(uint64_t value) {
    return varintSize(value);
}

uint32_t QOS_TLM_GetProtoIntegerSize(uint32_t fieldNumber, uint64_t value) {
    return varintSize(tagOf(fieldNumber, 0)) + varintSize(value);
}

uint32_t QOS_TLM_GetProtoStringSize(uint32_t fieldNumber, uint32_t length) {
    return lengthDelimitedSize(fieldNumber, length);
}

uint32_t QOS_TLM_GetProtoStructSize(uint32_t fieldNumber, uint32_t length) {
    return lengthDelimitedSize(fieldNumber, length);
}

uint32_t QOS_TLM_CalcProtoSizeLeafnode(const QosTlmNodeData* leaf) {
    if (leaf == nullptr) {
        return 0;
    }
    switch (leaf->valueType) {
        case QOS_TLM_VALUE_BOOL:
        case QOS_TLM_VALUE_UINT32:
            return QOS_TLM_GetProtoIntegerSize(leaf->fieldNumber, static_cast<uint32_t>(leaf->value));
        case QOS_TLM_VALUE_UINT64:
            return QOS_TLM_GetProtoIntegerSize(leaf->fieldNumber, leaf->value);
        case QOS_TLM_VALUE_STRING:
            return QOS_TLM_GetProtoStringSize(leaf->fieldNumber, textLength(*leaf));
        default:
            return 0;
    }
}

uint32_t QOS_TLM_CalcProtoSizeRecursive(const QosTlmNode* node) {
    uint32_t size = 0;
    for (; node != nullptr; node = node->next) {
        size += node->isLeaf != 0 ? QOS_TLM_CalcProtoSizeLeafnode(&node->data)
                                  : QOS_TLM_GetProtoStructSize(node->data.fieldNumber,
                                                               QOS_TLM_CalcProtoSizeRecursive(node->firstChild));
    }
    return size;
}

uint32_t QOS_TLM_EstimatePackageSizeProto(const QosTlmNode* top) {
    return QOS_TLM_CalcProtoSizeRecursive(top);
}

uint32_t QOS_TLM_WrapProtoInteger(uint64_t value, uint8_t* dest, uint32_t room) {
    return writeVarint(value, dest, room);
}

uint32_t QOS_TLM_WrapProtoType(uint32_t fieldNumber, uint32_t wireType, uint8_t* dest, uint32_t room) {
    return writeVarint(tagOf(fieldNumber, wireType), dest, room);
}

uint32_t QOS_TLM_WrapProtoNodeInteger(uint32_t fieldNumber, uint64_t value, uint8_t* dest, uint32_t room) {
    const uint32_t tagLen = writeVarint(tagOf(fieldNumber, QOS_TLM_WIRE_VARINT), dest, room);
    if (tagLen == 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_WRAP_FAIL, fieldNumber, 195);
        return 0;
    }
    const uint32_t valueLen = writeVarint(value, dest + tagLen, room - tagLen);
    if (valueLen == 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_WRAP_FAIL, fieldNumber, 200);
        return 0;
    }
    return tagLen + valueLen;
}

uint32_t QOS_TLM_WrapProtoNodeString(uint32_t fieldNumber, const void* data, uint32_t dataLen, uint8_t* dest,
                                     uint32_t room) {
    const uint32_t tagLen = writeVarint(tagOf(fieldNumber, QOS_TLM_WIRE_LEN), dest, room);
    if (tagLen == 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_WRAP_FAIL, fieldNumber, 211);
        return 0;
    }
    const uint32_t lengthLen = writeVarint(dataLen, dest + tagLen, room - tagLen);
    if (lengthLen == 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_WRAP_FAIL, dataLen, 217);
        return 0;
    }
    const uint32_t headerLen = tagLen + lengthLen;
    if (dataLen == 0) {
        return headerLen;
    }
    if (memcpy_s(dest + headerLen, room - headerLen, data, dataLen) != 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_SAFE_FUNC_FAIL, room - headerLen, 228);
        return 0;
    }
    return headerLen + dataLen;
}

uint32_t QOS_TLM_WrapProtoNodeLeaf(const QosTlmNodeData* leaf, uint8_t* dest, uint32_t room) {
    if (leaf == nullptr) {
        return 0;
    }
    switch (leaf->valueType) {
        case QOS_TLM_VALUE_BOOL:
        case QOS_TLM_VALUE_UINT32:
            return QOS_TLM_WrapProtoNodeInteger(leaf->fieldNumber, static_cast<uint32_t>(leaf->value), dest, room);
        case QOS_TLM_VALUE_UINT64:
            return QOS_TLM_WrapProtoNodeInteger(leaf->fieldNumber, leaf->value, dest, room);
        case QOS_TLM_VALUE_STRING:
            return QOS_TLM_WrapProtoNodeString(leaf->fieldNumber, textOf(*leaf), textLength(*leaf), dest, room);
        default:
            return 0;
    }
}

uint32_t QOS_TLM_WrapProtoNodeStruct(uint32_t fieldNumber, const QosTlmNode* firstChild, uint8_t* dest, uint32_t room) {
    if (firstChild == nullptr || room == 0) {
        return 0;
    }
    // The content comes first, in a block of its own: its length stands in front of it and is known only then.
    auto* scratch = static_cast<uint8_t*>(NIVEX_AllocBuff(room));
    if (scratch == nullptr) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_MALLOC_FAIL, room, 261);
        return 0;
    }
    uint32_t used = 0;
    for (const QosTlmNode* child = firstChild; child != nullptr; child = child->next) {
        used += child->isLeaf != 0 ? QOS_TLM_WrapProtoNodeLeaf(&child->data, scratch + used, room - used)
                                   : QOS_TLM_WrapProtoNodeStruct(child->data.fieldNumber, child->firstChild,
                                                                 scratch + used, room - used);
    }
    const uint32_t written = QOS_TLM_WrapProtoNodeString(fieldNumber, scratch, used, dest, room);
    NIVEX_FreeBuff(scratch);
    return written;
}

void* QOS_TLM_EncodeProto(const QosTlmNode* top, uint32_t* outLen) {
    if (outLen == nullptr) {
        return nullptr;
    }
    const uint32_t size = QOS_TLM_CalcProtoSizeRecursive(top);
    if (size == 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_WRAP_FAIL, 0, 284);
        return nullptr;
    }
    auto* block = static_cast<uint8_t*>(NIVEX_AllocBuff(size));
    if (block == nullptr) {
        QOS_TLM_DiagErr("[TLM EncodeProto] malloc failed.");
        QOS_TLM_LogEncode(QOS_TLM_ENC_MALLOC_FAIL, size, 290);
        return nullptr;
    }
    *outLen = QOS_TLM_WrapProtoNodeStruct(top->data.fieldNumber, top->firstChild, block, size);
    return block;
}
