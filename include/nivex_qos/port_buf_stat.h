/*
 * Port buffer usage: total, used, remaining, peak and average buffer of each port.
 *
 * Path "port-buffer-usage-statistics" (QOS_TLM_QueryPortBufStat), database table port_buf_stat, batches of 200
 * records. The functions below are the steps of the family's query, one by one; nivex_qos/queue_stat.h says what each
 * answers.
 */
#ifndef NIVEX_QOS_PORT_BUF_STAT_H
#define NIVEX_QOS_PORT_BUF_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of port_buf_stat. */
typedef struct QosTlmPortBufStat {
    uint32_t slotId;    /* slot number; neither sent nor compared */
    char slotIdStr[32]; /* slot as text, NUL-terminated */
    uint32_t ifIndex;   /* interface index */
    char ifName[32];    /* interface name, NUL-terminated */
    uint64_t totalBuff; /* buffer counters: units of the database */
    uint64_t currentUsed;
    uint64_t remained;
    uint64_t peakUsed;
    uint64_t avgUsed;
} QosTlmPortBufStat;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmPortBufStatQueryToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryPortBufStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetPortBufStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetPortBufStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetPortBufStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetPortBufStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitPortBufStatQueryFlag(void);
QOS_TLM_API uint32_t QOS_TLM_ReadPortBufStatField(void* object, QosTlmPortBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_CheckPortBufStat(uint32_t previousFlag, const QosTlmPortBufStat* record,
                                              const QosTlmQueryParam* request, uint32_t* thresholdValue);
QOS_TLM_API uint32_t QOS_TLM_IsSentPortBufStat(uint32_t previousFlag, const QosTlmPortBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionPortBufStat(const QosTlmPortBufStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantPortBufStat(const QosTlmPortBufStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtPortBufStat(const QosTlmPortBufStat* record, const QosTlmQueryParam* request,
                                                     uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdPortBufStat(const QosTlmPortBufStat* record, const QosTlmQueryParam* request,
                                                    uint32_t* value);
QOS_TLM_API void QOS_TLM_GetPortBufStatFieldValue(const char* fieldName, const QosTlmPortBufStat* record,
                                                  uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_GetPortBufStatDataNode(QosTlmNode* list, const QosTlmPortBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsPortBufStatRecordCntOver(const QosTlmPortBufStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
