/*
 * Ingress port drop statistics: bytes and packets dropped on ingress, per interface.
 *
 * Path "ing-port-drop-statistics" (QOS_TLM_QueryIngPortDropStat), database table ing_port_drop_stat, batches of 400
 * records. The functions below are the steps of the family's query, one by one; nivex_qos/queue_stat.h says what each
 * answers.
 */
#ifndef NIVEX_QOS_ING_PORT_DROP_STAT_H
#define NIVEX_QOS_ING_PORT_DROP_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of ing_port_drop_stat. */
typedef struct QosTlmIngPortDropStat {
    uint32_t ifIndex; /* interface index */
    char ifName[32];  /* interface name, NUL-terminated */
    uint64_t dropBytes;
    uint64_t dropPkts;
} QosTlmIngPortDropStat;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmIngStatQueryToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryIngPortDropStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetIngPortDropStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetIngPortDropStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetIngPortDropStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetIngPortDropStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitIngPortDropStatQueryFlag(void);
QOS_TLM_API uint32_t QOS_TLM_ReadIngPortDropStatField(void* object, QosTlmIngPortDropStat* record);
QOS_TLM_API uint32_t QOS_TLM_CheckIngPortDropStat(uint32_t previousFlag, const QosTlmIngPortDropStat* record,
                                                  const QosTlmQueryParam* request, uint32_t* thresholdValue);
QOS_TLM_API uint32_t QOS_TLM_IsSentIngPortDropStat(uint32_t previousFlag, const QosTlmIngPortDropStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionIngPortDropStat(const QosTlmIngPortDropStat* record,
                                                        const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantIngPortDropStat(const QosTlmIngPortDropStat* record,
                                                        const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtIngPortDropStat(const QosTlmIngPortDropStat* record,
                                                         const QosTlmQueryParam* request, uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdIngPortDropStat(const QosTlmIngPortDropStat* record,
                                                        const QosTlmQueryParam* request, uint32_t* value);
QOS_TLM_API void QOS_TLM_GetIngPortDropStatFieldValue(const char* fieldName, const QosTlmIngPortDropStat* record,
                                                      uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_GetIngPortDropStatDataNode(QosTlmNode* list, const QosTlmIngPortDropStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsIngPortDropStatRecordCntOver(const QosTlmIngPortDropStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
