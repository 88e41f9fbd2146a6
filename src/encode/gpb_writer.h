/*
 * A tree checked, sized and written in GPB with one walk less than through the exported functions.
 */
#ifndef SRC_ENCODE_GPB_WRITER_H
#define SRC_ENCODE_GPB_WRITER_H

#include <cstdint>
#include <optional>

#include "nivex_qos/tree.h"

namespace qos {

// Whether GPB trees can take that way: a process that has put functions of its own behind the names of those that
// check, size and write a tree wants them called.
bool writesGpbItself();

// The size of a tree and its siblings, as QOS_TLM_CalcProtoSizeRecursive; nothing if QOS_TLM_ValidateTree refuses it.
std::optional<uint32_t> validGpbSize(const QosTlmNode* node);

// QOS_TLM_EncodeProto of a tree of that size.
void* encodeGpb(const QosTlmNode* top, uint32_t size, uint32_t* outLen);

}  // namespace qos

#endif
