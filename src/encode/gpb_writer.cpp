#include "encode/gpb_writer.h"

#include <bit>

#include "encode/tree.h"
#include "nivex_qos/encode.h"
#include "nivex_qos/gpb.h"
#include "nivex_qos/log.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "support/own_function.h"

QOS_TLM_OWN_FUNCTION(QOS_TLM_CalcProtoSizeLeafnode);
QOS_TLM_OWN_FUNCTION(QOS_TLM_CalcProtoSizeRecursive);
QOS_TLM_OWN_FUNCTION(QOS_TLM_EncodeProto);
QOS_TLM_OWN_FUNCTION(QOS_TLM_GetProtoIntegerSize);
QOS_TLM_OWN_FUNCTION(QOS_TLM_GetProtoStringSize);
QOS_TLM_OWN_FUNCTION(QOS_TLM_GetProtoStructSize);
QOS_TLM_OWN_FUNCTION(QOS_TLM_WrapProtoNodeInteger);
QOS_TLM_OWN_FUNCTION(QOS_TLM_WrapProtoNodeLeaf);

namespace {

uint32_t varintSize(uint64_t value) {
    // Seven bits a byte; for 8 to 64 bits 9/64 rounds as 1/7 does and needs no division.
    return value < 0x80 ? 1 : (static_cast<uint32_t>(std::bit_width(value)) * 9 + 64) / 64;
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

uint32_t integerSize(uint32_t fieldNumber, uint64_t value) {
    return varintSize(tagOf(fieldNumber, 0)) + varintSize(value);
}

template <class IntegerSize, class TextSize>
[[gnu::always_inline]] inline uint32_t sizeOfLeaf(const QosTlmNodeData& leaf, IntegerSize integer, TextSize text) {
    switch (leaf.valueType) {
        case QOS_TLM_VALUE_BOOL:
        case QOS_TLM_VALUE_UINT32:
            return integer(leaf.fieldNumber, static_cast<uint32_t>(leaf.value));
        case QOS_TLM_VALUE_UINT64:
            return integer(leaf.fieldNumber, leaf.value);
        case QOS_TLM_VALUE_STRING:
            return text(leaf.fieldNumber, textLength(leaf));
        default:
            return 0;
    }
}

// The seven-bit groups of a value below 2^56, one to a byte, the lowest first.
uint64_t spreadGroups(uint64_t value) {
    value = (value & 0x000000000FFFFFFF) | (value & 0x00FFFFFFF0000000) << 4;
    value = (value & 0x00003FFF00003FFF) | (value & 0x0FFFC0000FFFC000) << 2;
    return (value & 0x007F007F007F007F) | (value & 0x3F803F803F803F80) << 1;
}

[[gnu::always_inline]] inline uint32_t writeBytes(const void* bytes, uint32_t count, uint64_t value, uint8_t* dest,
                                                  uint32_t room) {
    if (count > room) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_LEN_EXCEED, value >> (7 * (count - 1)), 174);
        return 0;
    }
    if (memcpy_s(dest, room, bytes, count) != 0) {
        QOS_TLM_LogEncode(QOS_TLM_ENC_SAFE_FUNC_FAIL, room, 179);
        return 0;
    }
    return count;
}

// All bytes at once: counters are of any length, and a loop's end cannot be predicted.
[[gnu::always_inline]] inline uint32_t writeVarint(uint64_t value, uint8_t* dest, uint32_t room) {
    static_assert(std::endian::native == std::endian::little, "a varint's bytes are laid out as an integer's");
    constexpr uint64_t kMoreFollow = 0x8080808080808080;
    if (value < 0x80) {  // nearly every tag
        const auto byte = static_cast<uint8_t>(value);
        return writeBytes(&byte, 1, value, dest, room);
    }
    const uint32_t size = varintSize(value);
    if (size <= sizeof value) {
        const uint64_t bytes = spreadGroups(value) | (kMoreFollow >> (8 * (sizeof value + 1 - size)));
        return writeBytes(&bytes, size, value, dest, room);
    }
    const uint64_t bytes[] = {spreadGroups(value) | kMoreFollow,
                              size == 9 ? value >> 56 : (value >> 56 & 0x7F) | 0x80 | value >> 63 << 8};
    return writeBytes(bytes, size, value, dest, room);
}

// The fields of a message, written without a call in between.

[[gnu::always_inline]] inline uint32_t writeInteger(uint32_t fieldNumber, uint64_t value, uint8_t* dest,
                                                    uint32_t room) {
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

template <class WriteInteger>
[[gnu::always_inline]] inline uint32_t writeLeaf(const QosTlmNodeData& leaf, uint8_t* dest, uint32_t room,
                                                 WriteInteger integer) {
    switch (leaf.valueType) {
        case QOS_TLM_VALUE_BOOL:
        case QOS_TLM_VALUE_UINT32:
            return integer(leaf.fieldNumber, static_cast<uint32_t>(leaf.value), dest, room);
        case QOS_TLM_VALUE_UINT64:
            return integer(leaf.fieldNumber, leaf.value, dest, room);
        case QOS_TLM_VALUE_STRING:
            return QOS_TLM_WrapProtoNodeString(leaf.fieldNumber, textOf(leaf), textLength(leaf), dest, room);
        default:
            return 0;
    }
}

}  // namespace

uint32_t QOS_TLM_CalcProtoIntSize(uint64_t value) {
    return varintSize(value);
}

uint32_t QOS_TLM_GetProtoIntegerSize(uint32_t fieldNumber, uint64_t value) {
    return integerSize(fieldNumber, value);
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
    return sizeOfLeaf(*leaf, QOS_TLM_GetProtoIntegerSize, QOS_TLM_GetProtoStringSize);
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
    return writeInteger(fieldNumber, value, dest, room);
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
    return leaf == nullptr ? 0 : writeLeaf(*leaf, dest, room, QOS_TLM_WrapProtoNodeInteger);
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
    // A call by name for each leaf, and in it one for each number, costs as much as the writing: the own code stands
    // here as long as the process has not put its own functions behind the names.
    const bool own = QOS_TLM_IS_OWN(QOS_TLM_WrapProtoNodeLeaf) && QOS_TLM_IS_OWN(QOS_TLM_WrapProtoNodeInteger);
    uint32_t used = 0;
    for (const QosTlmNode* child = firstChild; child != nullptr; child = child->next) {
        uint8_t* const end = scratch + used;
        if (child->isLeaf == 0) {
            used += QOS_TLM_WrapProtoNodeStruct(child->data.fieldNumber, child->firstChild, end, room - used);
        } else {
            used += own ? writeLeaf(child->data, end, room - used, writeInteger)
                        : QOS_TLM_WrapProtoNodeLeaf(&child->data, end, room - used);
        }
    }
    const uint32_t written = QOS_TLM_WrapProtoNodeString(fieldNumber, scratch, used, dest, room);
    NIVEX_FreeBuff(scratch);
    return written;
}

void* QOS_TLM_EncodeProto(const QosTlmNode* top, uint32_t* outLen) {
    return outLen == nullptr ? nullptr : qos::encodeGpb(top, QOS_TLM_CalcProtoSizeRecursive(top), outLen);
}

bool qos::writesGpbItself() {
    return QOS_TLM_IS_OWN(QOS_TLM_EncodeProto) && QOS_TLM_IS_OWN(QOS_TLM_CalcProtoSizeRecursive) &&
           QOS_TLM_IS_OWN(QOS_TLM_CalcProtoSizeLeafnode) && QOS_TLM_IS_OWN(QOS_TLM_GetProtoIntegerSize) &&
           QOS_TLM_IS_OWN(QOS_TLM_GetProtoStringSize) && QOS_TLM_IS_OWN(QOS_TLM_GetProtoStructSize);
}

std::optional<uint32_t> qos::validGpbSize(const QosTlmNode* node) {
    uint32_t size = 0;
    for (; node != nullptr; node = node->next) {
        if (!isValid(node->data)) {
            return std::nullopt;
        }
        uint32_t content = 0;
        if (node->firstChild != nullptr) {
            const std::optional<uint32_t> children = validGpbSize(node->firstChild);
            if (!children) {
                return std::nullopt;
            }
            content = *children;
        }
        size += node->isLeaf != 0 ? sizeOfLeaf(node->data, integerSize, lengthDelimitedSize)
                                  : lengthDelimitedSize(node->data.fieldNumber, content);
    }
    return size;
}

void* qos::encodeGpb(const QosTlmNode* top, uint32_t size, uint32_t* outLen) {
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
