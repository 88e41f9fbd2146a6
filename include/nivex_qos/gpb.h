/*
 * The GPB writer: a tree as Protocol Buffers wire format (protobuf.dev, "Encoding"), without a schema compiler.
 *
 * Two wire types occur: 0 (varint) for every number and bool, 2 (length-delimited) for every text and inner node. A tag
 * is (field number << 3) | wire type, computed in 32 bits. A leaf is always written, 0 included; an inner node without
 * children is left out. All lengths and rooms are bytes; a room is what may still be written at the destination. Every
 * writer answers the number of bytes written, 0 on failure (logged), and never writes past the room.
 */
#ifndef NIVEX_QOS_GPB_H
#define NIVEX_QOS_GPB_H

#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

typedef enum QosTlmWireType { QOS_TLM_WIRE_VARINT = 0, QOS_TLM_WIRE_LEN = 2 } QosTlmWireType;

/* Bytes of a varint: 1 (0 to 127) to 10 (2^63 and above). */
QOS_TLM_API uint32_t QOS_TLM_CalcProtoIntSize(uint64_t value);

/* Bytes of a field: tag and varint; tag, length and content. */
QOS_TLM_API uint32_t QOS_TLM_GetProtoIntegerSize(uint32_t fieldNumber, uint64_t value);
QOS_TLM_API uint32_t QOS_TLM_GetProtoStringSize(uint32_t fieldNumber, uint32_t length);
QOS_TLM_API uint32_t QOS_TLM_GetProtoStructSize(uint32_t fieldNumber, uint32_t length);

/* Bytes of a leaf, a string by its text (none counts as an empty one); 0 for an unknown value type. */
QOS_TLM_API uint32_t QOS_TLM_CalcProtoSizeLeafnode(const QosTlmNodeData* leaf);

/* Bytes of the node and all its later siblings; an empty inner node counts its tag and a length byte. */
QOS_TLM_API uint32_t QOS_TLM_CalcProtoSizeRecursive(const QosTlmNode* node);
QOS_TLM_API uint32_t QOS_TLM_EstimatePackageSizeProto(const QosTlmNode* top);

/* Writes a varint; a tag; an integer field; a length-delimited field. */
QOS_TLM_API uint32_t QOS_TLM_WrapProtoInteger(uint64_t value, uint8_t* dest, uint32_t room);
QOS_TLM_API uint32_t QOS_TLM_WrapProtoType(uint32_t fieldNumber, uint32_t wireType, uint8_t* dest, uint32_t room);
QOS_TLM_API uint32_t QOS_TLM_WrapProtoNodeInteger(uint32_t fieldNumber, uint64_t value, uint8_t* dest, uint32_t room);
QOS_TLM_API uint32_t QOS_TLM_WrapProtoNodeString(uint32_t fieldNumber, const void* data, uint32_t dataLen,
                                                 uint8_t* dest, uint32_t room);

/* Writes one leaf, a string with valueLen - 1 bytes of its text; nothing for an unknown value type. */
QOS_TLM_API uint32_t QOS_TLM_WrapProtoNodeLeaf(const QosTlmNodeData* leaf, uint8_t* dest, uint32_t room);

/*
 * Writes an inner node with its children, by way of a scratch block of the room's size. A child that fails is left out
 * and the rest is written. 0 when there is no child or no room.
 */
QOS_TLM_API uint32_t QOS_TLM_WrapProtoNodeStruct(uint32_t fieldNumber, const QosTlmNode* firstChild, uint8_t* dest,
                                                 uint32_t room);

/*
 * Encodes the tree under top, top itself included, into a new block that the caller frees; *outLen receives the bytes
 * written. Null (logged, outLen untouched) for a null top or when no block is to be had. The tree must be valid.
 */
QOS_TLM_API void* QOS_TLM_EncodeProto(const QosTlmNode* top, uint32_t* outLen);

QOS_TLM_END_DECLS

#endif
