/*
 * Interface ingress buffer usage: guaranteed buffer, buffer and headroom of each lossless queue.
 *
 * Path "intf-ing-buf-usage-statistics" (QOS_TLM_QueryBufIngStat), database table ing_buf_usage_stat, batches of 150
 * records. The functions below are the steps of the family's query, one by one; nivex_qos/queue_stat.h says what each
 * answers.
 *
 * Queues that are not lossless are dropped by the check before any other test.
 */
#ifndef NIVEX_QOS_BUF_ING_STAT_H
#define NIVEX_QOS_BUF_ING_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of ing_buf_usage_stat. */
typedef struct QosTlmBufIngStat {
    uint32_t ifIndex;     /* interface index, below 2^29 */
    uint32_t queueId;     /* 0 to 7 */
    char ifName[32];      /* interface name, NUL-terminated */
    uint32_t isLossless;  /* 0: the queue is never reported */
    uint8_t isPfcDynamic; /* priority-based flow control is dynamic on the queue */
    uint32_t currentGuaranteed;
    uint32_t totalGuaranteed;
    uint32_t currentBuffer;
    uint32_t totalBuffer;
    uint32_t currentHeadroom;
    uint32_t totalHeadroom;
} QosTlmBufIngStat;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmBufIngStatQueryRecordToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryBufIngStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetBufIngStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetBufIngStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetBufIngStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetBufIngStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitBufIngStatQueryFlag(void);
QOS_TLM_API uint32_t QOS_TLM_ReadBufIngStatField(void* object, QosTlmBufIngStat* record);
QOS_TLM_API uint32_t QOS_TLM_CheckBufIngStat(uint32_t previousFlag, const QosTlmBufIngStat* record,
                                             const QosTlmQueryParam* request, uint32_t* thresholdValue);
QOS_TLM_API uint32_t QOS_TLM_IsSentBufIngStat(uint32_t previousFlag, const QosTlmBufIngStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionBufIngStat(const QosTlmBufIngStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantBufIngStat(const QosTlmBufIngStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtBufIngStat(const QosTlmBufIngStat* record, const QosTlmQueryParam* request,
                                                    uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdBufIngStat(const QosTlmBufIngStat* record, const QosTlmQueryParam* request,
                                                   uint32_t* value);
QOS_TLM_API void QOS_TLM_GetBufIngStatFieldValue(const char* fieldName, const QosTlmBufIngStat* record,
                                                 uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_GetBufIngStatDataNode(QosTlmNode* list, const QosTlmBufIngStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsBufIngStatRecordCntOver(const QosTlmBufIngStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
