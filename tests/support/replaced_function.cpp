// A module that puts a function of its own behind one exported name of the plug-in: counts the calls and passes them on
// to the plug-in's own. Built once for each of the names below.
#include <cstdint>

#include "nivex_qos/encode.h"
#include "nivex_qos/gpb.h"
#include "nivex_qos/tracking.h"
#include "nivex_qos/tree.h"

extern "C" {
QOS_TLM_API void* replacedOriginal = nullptr;
QOS_TLM_API uint32_t replacedCalls = 0;
}

#define PASS_ON(name, ...) (++replacedCalls, reinterpret_cast<decltype(&(name))>(replacedOriginal)(__VA_ARGS__))

#if defined(REPLACE_QOS_TLM_ValidateTree)
uint32_t QOS_TLM_ValidateTree(const QosTlmNode* node) {
    return PASS_ON(QOS_TLM_ValidateTree, node);
}
#elif defined(REPLACE_QOS_TLM_CalcProtoSizeRecursive)
uint32_t QOS_TLM_CalcProtoSizeRecursive(const QosTlmNode* node) {
    return PASS_ON(QOS_TLM_CalcProtoSizeRecursive, node);
}
#elif defined(REPLACE_QOS_TLM_EncodeProto)
void* QOS_TLM_EncodeProto(const QosTlmNode* top, uint32_t* outLen) {
    return PASS_ON(QOS_TLM_EncodeProto, top, outLen);
}
#elif defined(REPLACE_QOS_TLM_WrapProtoNodeLeaf)
uint32_t QOS_TLM_WrapProtoNodeLeaf(const QosTlmNodeData* leaf, uint8_t* dest, uint32_t room) {
    return PASS_ON(QOS_TLM_WrapProtoNodeLeaf, leaf, dest, room);
}
#elif defined(REPLACE_QOS_TLM_WrapProtoNodeInteger)
uint32_t QOS_TLM_WrapProtoNodeInteger(uint32_t fieldNumber, uint64_t value, uint8_t* dest, uint32_t room) {
    return PASS_ON(QOS_TLM_WrapProtoNodeInteger, fieldNumber, value, dest, room);
}
#elif defined(REPLACE_QOS_TLM_AddChildUint64)
uint32_t QOS_TLM_AddChildUint64(QosTlmNode* parent, const char* name, uint64_t value, uint32_t fieldNumber) {
    return PASS_ON(QOS_TLM_AddChildUint64, parent, name, value, fieldNumber);
}
#elif defined(REPLACE_QOS_HashInsert)
void QOS_HashInsert(uint32_t familyIndex, uint32_t key) {
    PASS_ON(QOS_HashInsert, familyIndex, key);
}
#else
#error "no function to replace"
#endif
