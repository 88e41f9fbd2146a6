#include "nivex_qos/gpb.h"

#include <bit>
#include <cstring>

#include "encode/status_log.h"
#include "encode/tree.h"
#include "encode/varint.h"
#include "nivex_qos/log.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "support/by_name.h"

using qos::tagOf;
namespace site = qos::site;

QOS_TLM_BY_NAME(sizeByName, QOS_TLM_CalcProtoSizeRecursive);
QOS_TLM_BY_NAME(writeByName, QOS_TLM_WrapProtoNodeStruct);

namespace {

// The seven-bit groups of a value below 2^56, one to a byte, the lowest first.
uint64_t spreadGroups(uint64_t value) {
    value = (value & 0x000000000FFFFFFF) | (value & 0x00FFFFFFF0000000) << 4;
    value = (value & 0x00003FFF00003FFF) | (value & 0x0FFFC0000FFFC000) << 2;
    return (value & 0x007F007F007F007F) | (value & 0x3F803F803F803F80) << 1;
}

// All bytes at once: counters are of any length, and a loop's end cannot be predicted.
[[gnu::always_inline]] inline uint32_t writeVarint(uint64_t value, uint8_t* dest, uint32_t room) {
    static_assert(std::endian::native == std::endian::little, "a varint's bytes are laid out as an integer's");
    constexpr uint64_t kMoreFollow = 0x8080808080808080;
    uint64_t bytes[2] = {value, 0};
    uint32_t size = 1;
    if (value >= 0x80) {
        size = qos::varintSize(value);
        bytes[0] = spreadGroups(value) | (kMoreFollow >> (size < 9 ? 8 * (9 - size) : 0));
        bytes[1] = size < 10 ? value >> 56 : (value >> 56 & 0x7F) | 0x80 | value >> 63 << 8;
    }
    if (size > room) {
        qos::logAt(site::kVarintTooLong, value >> (7 * (size - 1)));
        return 0;
    }
    if (memcpy_s(dest, room, bytes, size) != 0) {
        qos::logAt(site::kVarintNotCopied, room);
        return 0;
    }
    return size;
}

}  // namespace

uint32_t QOS_TLM_CalcProtoIntSize(uint64_t value) {
    return qos::varintSize(value);
}

uint32_t QOS_TLM_GetProtoIntegerSize(uint32_t fieldNumber, uint64_t value) {
    return qos::integerFieldSize(fieldNumber, value);
}

uint32_t QOS_TLM_GetProtoStringSize(uint32_t fieldNumber, uint32_t length) {
    return qos::lengthDelimitedSize(fieldNumber, length);
}

uint32_t QOS_TLM_GetProtoStructSize(uint32_t fieldNumber, uint32_t length) {
    return qos::lengthDelimitedSize(fieldNumber, length);
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
        case QOS_TLM_VALUE_STRING: {
            const char* text = qos::textOf(*leaf);  // none: from a direct caller, without validation
            return QOS_TLM_GetProtoStringSize(leaf->fieldNumber,
                                              text == nullptr ? 0 : static_cast<uint32_t>(strlen(text)));
        }
        default:
            return 0;
    }
}

uint32_t QOS_TLM_CalcProtoSizeRecursive(const QosTlmNode* node) {
    uint32_t size = 0;
    for (; node != nullptr; node = node->next) {
        size += node->isLeaf != 0 ? QOS_TLM_CalcProtoSizeLeafnode(&node->data)
                                  : QOS_TLM_GetProtoStructSize(node->data.fieldNumber, sizeByName(node->firstChild));
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
        qos::logAt(site::kIntegerTag, fieldNumber);
        return 0;
    }
    const uint32_t valueLen = writeVarint(value, dest + tagLen, room - tagLen);
    if (valueLen == 0) {
        qos::logAt(site::kIntegerValue, fieldNumber);
        return 0;
    }
    return tagLen + valueLen;
}

uint32_t QOS_TLM_WrapProtoNodeString(uint32_t fieldNumber, const void* data, uint32_t dataLen, uint8_t* dest,
                                     uint32_t room) {
    const uint32_t tagLen = writeVarint(tagOf(fieldNumber, QOS_TLM_WIRE_LEN), dest, room);
    if (tagLen == 0) {
        qos::logAt(site::kFieldTag, fieldNumber);
        return 0;
    }
    const uint32_t lengthLen = writeVarint(dataLen, dest + tagLen, room - tagLen);
    if (lengthLen == 0) {
        qos::logAt(site::kFieldLength, dataLen);
        return 0;
    }
    const uint32_t headerLen = tagLen + lengthLen;
    if (dataLen == 0) {
        return headerLen;
    }
    if (memcpy_s(dest + headerLen, room - headerLen, data, dataLen) != 0) {
        qos::logAt(site::kFieldNotCopied, room - headerLen);
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
            return QOS_TLM_WrapProtoNodeString(leaf->fieldNumber, qos::textOf(*leaf), leaf->valueLen - 1, dest, room);
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
        qos::logAt(site::kNoScratchBlock, room);
        return 0;
    }
    uint32_t used = 0;
    for (const QosTlmNode* child = firstChild; child != nullptr; child = child->next) {
        used += child->isLeaf != 0
                    ? QOS_TLM_WrapProtoNodeLeaf(&child->data, scratch + used, room - used)
                    : writeByName(child->data.fieldNumber, child->firstChild, scratch + used, room - used);
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
        qos::logAt(site::kEmptyTree);
        return nullptr;
    }
    auto* block = static_cast<uint8_t*>(NIVEX_AllocBuff(size));
    if (block == nullptr) {
        QOS_TLM_DiagErr("[TLM EncodeProto] malloc failed.");
        qos::logAt(site::kNoOutputBlock, size);
        return nullptr;
    }
    *outLen = QOS_TLM_WrapProtoNodeStruct(top->data.fieldNumber, top->firstChild, block, size);
    return block;
}
