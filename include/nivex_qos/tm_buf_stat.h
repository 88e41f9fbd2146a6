/*
 * TM chip buffer usage: total and used buffer of each slot's traffic-manager chip.
 *
 * Path "tm-chip-buffer-usage-statistics" (QOS_TLM_QueryTmBufStat), database table tm_chip_buf_stat, batches of 100
 * records. The functions below are the steps of the family's query, one by one; nivex_qos/queue_stat.h says what each
 * answers.
 *
 * Every key of a record is the slot number that QOS_TLM_StrSlot2IntSlot makes of its text. A record whose text is no
 * slot is logged, counts as not sent and as changed, and is neither counted towards the batch nor remembered as sent.
 */
#ifndef NIVEX_QOS_TM_BUF_STAT_H
#define NIVEX_QOS_TM_BUF_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* One row of tm_chip_buf_stat. */
typedef struct QosTlmTmBufStat {
    char slotId[32];   /* slot as text, NUL-terminated: a number, or two joined by a slash */
    uint64_t totalBuf; /* units of the database */
    uint64_t usedBuf;
    uint32_t usedPct; /* percent */
} QosTlmTmBufStat;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmTmBufStatQueryToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryTmBufStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetTmBufStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetTmBufStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetTmBufStatGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetTmBufStatJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitTmBufStatQueryFlag(void);
QOS_TLM_API uint32_t QOS_TLM_ReadTmBufStatField(void* object, QosTlmTmBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_CheckTmBufStat(uint32_t previousFlag, const QosTlmTmBufStat* record,
                                            const QosTlmQueryParam* request, uint32_t* thresholdValue);
QOS_TLM_API uint32_t QOS_TLM_IsSentTmBufStat(uint32_t previousFlag, const QosTlmTmBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionTmBufStat(const char* slotText, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsRedundantTmBufStat(const QosTlmTmBufStat* record, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSelfDefEvtTmBufStat(const QosTlmTmBufStat* record, const QosTlmQueryParam* request,
                                                   uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_IsThresholdTmBufStat(const QosTlmTmBufStat* record, const QosTlmQueryParam* request,
                                                  uint32_t* value);
QOS_TLM_API void QOS_TLM_GetTmBufStatFieldValue(const char* fieldName, const QosTlmTmBufStat* record, uint32_t* value);
QOS_TLM_API uint32_t QOS_TLM_GetTmBufStatDataNode(QosTlmNode* list, const QosTlmTmBufStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsTmBufStatRecordCntOver(const QosTlmTmBufStat* record, uint32_t* count);

QOS_TLM_END_DECLS

#endif
