/*
 * Queue statistics: passed and discarded packets and bytes, and their rates, of each queue of each interface.
 *
 * Path "queue-statistics" (QOS_TLM_QueryQueueStat), database table queue_stat, batches of 128 records. The functions
 * below are the steps of the family's query, one by one; a query made of them behaves like the query function. They
 * follow the conventions of nivex_qos/export.h.
 */
#ifndef NIVEX_QOS_QUEUE_STAT_H
#define NIVEX_QOS_QUEUE_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of queue_stat. */
typedef struct QosTlmQueueStat {
    uint32_t ifIndex; /* interface index, below 2^29 */
    char ifName[32];  /* interface name, NUL-terminated */
    uint32_t queueId; /* queue number of the service class, 0 to 7 */
    uint64_t passPackets;
    uint64_t passBytes;
    uint64_t passPktRate; /* packets per second */
    uint64_t passBytRate; /* bytes per second */
    uint64_t dropPackets;
    uint64_t dropBytes;
    uint64_t dropPktRate; /* packets per second */
    uint64_t dropBytRate; /* bytes per second */
} QosTlmQueueStat;

/* 1 while a pass is unfinished: the last call stopped at the batch limit. */
QOS_TLM_API extern uint32_t g_qosTlmQueStatQueryToEnd;

/* The whole query: fills the zeroed buffer with the next batch; answers a QosTlmResult (failed for a null argument). */
QOS_TLM_API uint32_t QOS_TLM_QueryQueueStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

/* Opens the table: the object, which its release function also rids of the iterator. Both are null on failure. */
QOS_TLM_API uint32_t QOS_TLM_GetQueueStatIter(void** object, void** iterator);

/* Builds the top of a tree; records go under *list. Both are null on failure; 1 also for an unknown encodeType. */
QOS_TLM_API uint32_t QOS_TLM_GetQueueStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetQueueStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetQueueStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);

/* Begins a pass (forgets the sent records) or continues one; answers the flag's previous value and clears it. */
QOS_TLM_API uint32_t QOS_TLM_InitQueueStatQueryFlag(void);

/* Reads the row that the object stands on; calls every accessor even after one failed. */
QOS_TLM_API uint32_t QOS_TLM_ReadQueueStatField(void* object, QosTlmQueueStat* record);

/*
 * 1 when the record is to be sent: not sent before, conditions hold, then changed, or period over and thresholds
 * passed. previousFlag is what QOS_TLM_InitQueueStatQueryFlag answered. A value that passed thresholds goes to
 * *thresholdValue.
 */
QOS_TLM_API uint32_t QOS_TLM_CheckQueueStat(uint32_t previousFlag, const QosTlmQueueStat* record,
                                            const QosTlmQueryParam* request, uint32_t* thresholdValue);

/* The questions behind the check, one by one. */
QOS_TLM_API uint32_t QOS_TLM_IsSentQueueStat(uint32_t previousFlag, const QosTlmQueueStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionQueueStat(const QosTlmQueueStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantQueueStat(const QosTlmQueueStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtQueueStat(const QosTlmQueueStat* record, const QosTlmQueryParam* request,
                                                   uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdQueueStat(const QosTlmQueueStat* record, const QosTlmQueryParam* request,
                                                  uint32_t* value);

/* The low 32 bits of the field that a threshold names; 0 for an unknown name. "interface-name" is the index. */
QOS_TLM_API void QOS_TLM_GetQueueStatFieldValue(const char* fieldName, const QosTlmQueueStat* record, uint32_t* value);

/* Adds the record's entry with all its leaves under list; 0, or not 0 when a part of it could not be added. */
QOS_TLM_API uint32_t QOS_TLM_GetQueueStatDataNode(QosTlmNode* list, const QosTlmQueueStat* record);

/* Marks the record sent and counts it; 1, with the flag set, when the count has reached the batch limit. */
QOS_TLM_API uint32_t QOS_TLM_IsQueueStatRecordCntOver(const QosTlmQueueStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
