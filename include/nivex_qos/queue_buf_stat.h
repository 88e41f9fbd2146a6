/*
 * Queue buffer usage: used, peak, average and total buffer of each queue of each interface.
 *
 * Path "queue-buffer-usage-statistics" (QOS_TLM_QueryQueueBufStat), database table queue_buf_stat, batches of 200
 * records. The functions below are the steps of the family's query, one by one; nivex_qos/queue_stat.h says what each
 * answers.
 */
#ifndef NIVEX_QOS_QUEUE_BUF_STAT_H
#define NIVEX_QOS_QUEUE_BUF_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of queue_buf_stat. */
typedef struct QosTlmQueueBufStat {
    uint32_t slotId;    /* slot number: what a threshold on "slot-id" compares */
    char slotIdStr[32]; /* slot as text, NUL-terminated: what is sent and matched */
    uint32_t ifIndex;   /* interface index, below 2^29 */
    char ifName[32];    /* interface name, NUL-terminated */
    uint32_t queueId;   /* 0 to 7 */
    uint64_t curUsed;   /* buffer counters: units of the database */
    uint64_t peakUsed;
    uint64_t avgUsed;
    uint64_t totalBuf;
} QosTlmQueueBufStat;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmQueBufStatQueryToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryQueueBufStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetQueueBufStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetQueueBufStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetQueueBufStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetQueueBufStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitQueueBufStatQueryFlag(void);
QOS_TLM_API uint32_t QOS_TLM_ReadQueueBufStatField(void* object, QosTlmQueueBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_CheckQueueBufStat(uint32_t previousFlag, const QosTlmQueueBufStat* record,
                                               const QosTlmQueryParam* request, uint32_t* thresholdValue);
QOS_TLM_API uint32_t QOS_TLM_IsSentQueueBufStat(uint32_t previousFlag, const QosTlmQueueBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionQueueBufStat(const QosTlmQueueBufStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantQueueBufStat(const QosTlmQueueBufStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtQueueBufStat(const QosTlmQueueBufStat* record, const QosTlmQueryParam* request,
                                                      uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdQueueBufStat(const QosTlmQueueBufStat* record, const QosTlmQueryParam* request,
                                                     uint32_t* value);
QOS_TLM_API void QOS_TLM_GetQueBufStatFieldValue(const char* fieldName, const QosTlmQueueBufStat* record,
                                                 uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_GetQueueBufStatDataNode(QosTlmNode* list, const QosTlmQueueBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsQueueBufStatRecordCntOver(const QosTlmQueueBufStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
