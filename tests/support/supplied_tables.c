/* Tables that a process puts in front of the plug-in's own: of the same sizes, for a test to fill. */
#include "nivex_qos/export.h"

QOS_TLM_API void* g_qosTlmEncodeFunc[2 * 2];
QOS_TLM_API void* g_qosTlmQueryFuncTable[9 * 2];
QOS_TLM_API void* g_qosTlmTaskMap[9 * 70];
