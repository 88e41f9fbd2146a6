/*
 * Port ECN statistics: packets that ECN marked, per interface.
 *
 * Path "port-ecn-statistics" (QOS_TLM_QueryPortEcnStat), database table port_ecn_stat, batches of 600
 * records. The functions below are the steps of the family's query, one by one; nivex_qos/queue_stat.h says what each
 * answers.
 */
#ifndef NIVEX_QOS_PORT_ECN_STAT_H
#define NIVEX_QOS_PORT_ECN_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of port_ecn_stat. */
typedef struct QosTlmPortEcnStat {
    uint32_t ifIndex; /* interface index */
    char ifName[32];  /* interface name, NUL-terminated */
    uint64_t packets; /* packets marked */
} QosTlmPortEcnStat;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmPortEcnStatQueryToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryPortEcnStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetPortEcnStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetPortEcnStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetPortEcnStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetPortEcnStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitPortEcnStatQueryFlag(void);
QOS_TLM_API uint32_t QOS_TLM_ReadPortEcnStatField(void* object, QosTlmPortEcnStat* record);
QOS_TLM_API uint32_t QOS_TLM_CheckPortEcnStat(uint32_t previousFlag, const QosTlmPortEcnStat* record,
                                              const QosTlmQueryParam* request, uint32_t* thresholdValue);
QOS_TLM_API uint32_t QOS_TLM_IsSentPortEcnStat(uint32_t previousFlag, const QosTlmPortEcnStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionPortEcnStat(const QosTlmPortEcnStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantPortEcnStat(const QosTlmPortEcnStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtPortEcnStat(const QosTlmPortEcnStat* record, const QosTlmQueryParam* request,
                                                     uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdPortEcnStat(const QosTlmPortEcnStat* record, const QosTlmQueryParam* request,
                                                    uint32_t* value);
QOS_TLM_API void QOS_TLM_GetPortEcnStatFieldValue(const char* fieldName, const QosTlmPortEcnStat* record,
                                                  uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_GetPortEcnStatDataNode(QosTlmNode* list, const QosTlmPortEcnStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsPortEcnStatRecordCntOver(const QosTlmPortEcnStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
