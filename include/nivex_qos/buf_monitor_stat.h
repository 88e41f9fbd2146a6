/*
 * Interface buffer monitoring results: the last buffer burst of each monitored queue, with its result, start and peak.
 *
 * Path "interface-monitoring-result" (QOS_TLM_QueryTmBufMonitorStat), database table buffer_monitor_result, batches of
 * 200 records, in JSON of those that fit the payload. The functions below are the steps of the
 * family's query, one by one; nivex_qos/queue_stat.h says what each answers. The family differs from the others: it has
 * no thresholds, no period check and no change suppression, its "interface-name" condition is an exact text, and it
 * reads a row field by field and stops at the first failure.
 */
#ifndef NIVEX_QOS_BUF_MONITOR_STAT_H
#define NIVEX_QOS_BUF_MONITOR_STAT_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

#define QOS_TLM_DATE_TIME_SIZE 40u

/* One row of buffer_monitor_result. The times are texts like "2024-03-07 09:05:02.007", in the platform's convention.
 */
typedef struct QosTlmBufMonitorStat {
    uint32_t ifIndex;      /* interface index, below 2^29 */
    char ifName[32];       /* interface name, NUL-terminated */
    uint32_t queueIndex;   /* queue on the interface, 0 to 7 */
    uint32_t recordNumber; /* always 1 */
    char time[QOS_TLM_DATE_TIME_SIZE];
    uint32_t queryType; /* always 0 */
    uint32_t usedBuf;   /* buffer counters: units of the database */
    uint32_t percent;
    uint32_t slot;
    uint32_t startUsedBuf;
    uint32_t startPercent;
    char startTime[QOS_TLM_DATE_TIME_SIZE];
    uint32_t peakUsedBuf;
    uint32_t peakPercent;
    char peakTime[QOS_TLM_DATE_TIME_SIZE];
    uint32_t burstNumber;
} QosTlmBufMonitorStat;

/* A calendar time. */
typedef struct QosTlmDateTime {
    uint32_t year;
    uint8_t month; /* 1 to 12 */
    uint8_t day;   /* 1 to 31 */
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
} QosTlmDateTime;

/* 1 while a pass is unfinished: the last call stopped before the end of the table. */
QOS_TLM_API extern uint32_t g_qosTlmBufMonStatQueryToEnd;

QOS_TLM_API uint32_t QOS_TLM_QueryTmBufMonitorStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

QOS_TLM_API uint32_t QOS_TLM_GetBufMonitorStatIter(void** object, void** iterator);
QOS_TLM_API uint32_t QOS_TLM_GetBufMonitorStatStartNode(uint32_t encodeType, QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetBufMonitorGpbStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_GetBufMonitorJsonStartNode(QosTlmNode** root, QosTlmNode** list);
QOS_TLM_API uint32_t QOS_TLM_InitBufMonitorStatQueryFlag(void);

/* Reads the row that the object stands on; the first accessor that fails is logged and ends the reading. */
QOS_TLM_API uint32_t QOS_TLM_ReadBufMonitorStatField(void* object, QosTlmBufMonitorStat* record);

QOS_TLM_API uint32_t QOS_TLM_CheckBufMonitorStat(uint32_t previousFlag, const QosTlmBufMonitorStat* record,
                                                 const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_IsSentBufMonitorStat(uint32_t previousFlag, const QosTlmBufMonitorStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsConditionBufMonitorStat(const QosTlmBufMonitorStat* record,
                                                       const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_GetBufMonitorStatDataNode(QosTlmNode* list, const QosTlmBufMonitorStat* record);
QOS_TLM_API uint32_t QOS_TLM_IsBufMonRecordCntOver(const QosTlmBufMonitorStat* record, uint32_t* count);

/*
 * Writes seconds since 1970 and milliseconds as "%04u-%02u-%02u %02u:%02u:%02u.%03u" into text, a field of
 * QOS_TLM_DATE_TIME_SIZE bytes. The milliseconds are printed as they are, also above 999. 1 (logged) when the text
 * cannot be made.
 */
QOS_TLM_API uint32_t QOS_TLM_TimeStampToDateTime(uint64_t seconds, char* text, uint32_t milliseconds);

/* The calendar time of seconds since 1970; answers what the platform's conversion answered. */
QOS_TLM_API uint32_t QOS_ConvertTimestampToDateTime(uint64_t seconds, QosTlmDateTime* dateTime);

QOS_TLM_END_DECLS

#endif
