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

#define REPLACEMENT(result, name, parameters, ...)                                                  \
    result name parameters {                                                                        \
        return ++replacedCalls, reinterpret_cast<decltype(&(name))>(replacedOriginal)(__VA_ARGS__); \
    }

#if defined(REPLACE_QOS_TLM_ValidateTree)
REPLACEMENT(uint32_t, QOS_TLM_ValidateTree, (const QosTlmNode* node), node)
#elif defined(REPLACE_QOS_TLM_CalcProtoSizeRecursive)
REPLACEMENT(uint32_t, QOS_TLM_CalcProtoSizeRecursive, (const QosTlmNode* node), node)
#elif defined(REPLACE_QOS_TLM_CalcProtoSizeLeafnode)
REPLACEMENT(uint32_t, QOS_TLM_CalcProtoSizeLeafnode, (const QosTlmNodeData* leaf), leaf)
#elif defined(REPLACE_QOS_TLM_GetProtoIntegerSize)
REPLACEMENT(uint32_t, QOS_TLM_GetProtoIntegerSize, (uint32_t field, uint64_t value), field, value)
#elif defined(REPLACE_QOS_TLM_GetProtoStringSize)
REPLACEMENT(uint32_t, QOS_TLM_GetProtoStringSize, (uint32_t field, uint32_t length), field, length)
#elif defined(REPLACE_QOS_TLM_GetProtoStructSize)
REPLACEMENT(uint32_t, QOS_TLM_GetProtoStructSize, (uint32_t field, uint32_t length), field, length)
#elif defined(REPLACE_QOS_TLM_EncodeProto)
REPLACEMENT(void*, QOS_TLM_EncodeProto, (const QosTlmNode* top, uint32_t* outLen), top, outLen)
#elif defined(REPLACE_QOS_TLM_WrapProtoNodeLeaf)
REPLACEMENT(uint32_t, QOS_TLM_WrapProtoNodeLeaf, (const QosTlmNodeData* leaf, uint8_t* dest, uint32_t room), leaf, dest,
            room)
#elif defined(REPLACE_QOS_TLM_WrapProtoNodeInteger)
REPLACEMENT(uint32_t, QOS_TLM_WrapProtoNodeInteger, (uint32_t field, uint64_t value, uint8_t* dest, uint32_t room),
            field, value, dest, room)
#elif defined(REPLACE_QOS_TLM_AddChild)
REPLACEMENT(void, QOS_TLM_AddChild, (QosTlmNode * parent, QosTlmNode* child), parent, child)
#elif defined(REPLACE_QOS_TLM_AddChildUint64)
REPLACEMENT(uint32_t, QOS_TLM_AddChildUint64, (QosTlmNode * parent, const char* name, uint64_t value, uint32_t field),
            parent, name, value, field)
#elif defined(REPLACE_QOS_HashInsert)
REPLACEMENT(void, QOS_HashInsert, (uint32_t family, uint32_t key), family, key)
#else
#error "no function to replace"
#endif
