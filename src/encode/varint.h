/*
 * The size of a varint (protobuf.dev, "Encoding").
 */
#ifndef SRC_ENCODE_VARINT_H
#define SRC_ENCODE_VARINT_H

#include <bit>
#include <cstdint>

namespace qos {

constexpr uint32_t varintSize(uint64_t value) {
    // Seven bits a byte; for 8 to 64 bits 9/64 rounds as 1/7 does and needs no division.
    return value < 0x80 ? 1 : (static_cast<uint32_t>(std::bit_width(value)) * 9 + 64) / 64;
}

constexpr uint32_t tagOf(uint32_t fieldNumber, uint32_t wireType) {
    return (fieldNumber << 3) | wireType;
}

// Bytes of a field: tag and varint; tag, length and content.
constexpr uint32_t integerFieldSize(uint32_t fieldNumber, uint64_t value) {
    return varintSize(tagOf(fieldNumber, 0)) + varintSize(value);
}
constexpr uint32_t lengthDelimitedSize(uint32_t fieldNumber, uint32_t length) {
    return varintSize(tagOf(fieldNumber, 0)) + varintSize(length) + length;
}

}  // namespace qos

#endif
