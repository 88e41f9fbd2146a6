/*
 * Queue drop statistics: bytes and packets that each of the eight queues of an interface dropped.
 *
 * Path "queue-drop-statistics" (QOS_TLM_QueryQueueDropStat), database table queue_drop_stat, batches of 65
 * records. The functions below are the steps of the family's query, one by one; nivex_qos/queue_stat.h says what each
 * answers.
 */
#ifndef NIVEX_QOS_QUEUE_DROP_STAT_H
#define NIVEX_QOS_QUEUE_DROP_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of queue_drop_stat. */
typedef struct QosTlmQueueDropStat {
    uint32_t ifIndex; /* interface index */
    char ifName[32];  /* interface name, NUL-terminated */
    uint64_t queue0DropByts;
    uint64_t queue0DropPkts;
    uint64_t queue1DropByts;
    uint64_t queue1DropPkts;
    uint64_t queue2DropByts;
    uint64_t queue2DropPkts;
    uint64_t queue3DropByts;
    uint64_t queue3DropPkts;
    uint64_t queue4DropByts;
    uint64_t queue4DropPkts;
    uint64_t queue5DropByts;
    uint64_t queue5DropPkts;
    uint64_t queue6DropByts;
    uint64_t queue6DropPkts;
    uint64_t queue7DropByts;
    uint64_t queue7DropPkts;
} QosTlmQueueDropStat;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmQueDropStatQueryToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryQueueDropStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetQueueDropStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetQueueDropStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetQueueDropStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetQueueDropStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitQueueDropStatQueryFlag(void);
QOS_TLM_API uint32_t QOS_TLM_ReadQueueDropStatField(void* object, QosTlmQueueDropStat* record);
QOS_TLM_API uint32_t QOS_TLM_CheckQueueDropStat(uint32_t previousFlag, const QosTlmQueueDropStat* record,
                                                const QosTlmQueryParam* request, uint32_t* thresholdValue);
QOS_TLM_API uint32_t QOS_TLM_IsSentQueueDropStat(uint32_t previousFlag, const QosTlmQueueDropStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionQueueDropStat(const QosTlmQueueDropStat* record,
                                                      const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantQueueDropStat(const QosTlmQueueDropStat* record,
                                                      const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtQueueDropStat(const QosTlmQueueDropStat* record,
                                                       const QosTlmQueryParam* request, uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdQueueDropStat(const QosTlmQueueDropStat* record,
                                                      const QosTlmQueryParam* request, uint32_t* value);
QOS_TLM_API void QOS_TLM_GetQueDropStatFieldValue(const char* fieldName, const QosTlmQueueDropStat* record,
                                                  uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_GetQueueDropStatDataNode(QosTlmNode* list, const QosTlmQueueDropStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsQueueDropStatRecordCntOver(const QosTlmQueueDropStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
