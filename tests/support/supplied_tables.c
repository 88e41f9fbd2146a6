/* Tables that a process puts in front of the plug-in's own: of the same sizes, for a test to fill. */
#include "nivex_qos/encode.h"
#include "nivex_qos/plugin.h"

QOS_TLM_API QosTlmEncodeFuncEntry encoders[QOS_TLM_ENCODE_TYPE_NUM] __asm__("g_qosTlmEncodeFunc");
QOS_TLM_API QosTlmQueryFuncEntry queries[QOS_TLM_FAMILY_NUM] __asm__("g_qosTlmQueryFuncTable");
QOS_TLM_API QosTlmTaskMapEntry tasks[QOS_TLM_FAMILY_NUM] __asm__("g_qosTlmTaskMap");
