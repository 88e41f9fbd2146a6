/*
 * Sampling: the request that the host makes, the buffer that it gets, and the calls between them.
 *
 * The host calls the entry point of a path with a request; the plug-in hands back at most one QosTlmSampleData through
 * the host table's sampleDataUpload before the call returns. The request belongs to the host and is only read. The
 * buffer belongs to the plug-in and is gone when sampleDataUpload returns: the host copies what it keeps. Both records
 * are little-endian with the fixed offsets asserted below.
 *
 * A large table arrives over several calls: on QOS_TLM_RESULT_MORE the next call of the same entry point continues the
 * pass where the last one stopped. There is one pass per path, not one per request or subscriber.
 */
#ifndef NIVEX_QOS_SAMPLE_H
#define NIVEX_QOS_SAMPLE_H

#include <stddef.h>

#include "nivex_qos/export.h"

QOS_TLM_BEGIN_DECLS

/* The paths: row of g_qosTlmTaskMap and g_qosTlmQueryFuncTable, and column of every tracking table. */
typedef enum QosTlmFamilyIndex {
    QOS_TLM_FAMILY_PORT_ECN = 0,
    QOS_TLM_FAMILY_PORT_BUF = 1,
    QOS_TLM_FAMILY_QUEUE_BUF = 2,
    QOS_TLM_FAMILY_QUEUE = 3,
    QOS_TLM_FAMILY_QUEUE_DROP = 4,
    QOS_TLM_FAMILY_ING_PORT_DROP = 5,
    QOS_TLM_FAMILY_TM_BUF = 6,
    QOS_TLM_FAMILY_BUF_ING = 7,
    QOS_TLM_FAMILY_BUF_MONITOR = 8
} QosTlmFamilyIndex;

#define QOS_TLM_FAMILY_NUM 9u

/* Values of QosTlmQueryParam.encodeType; any other makes the sampling call fail. */
typedef enum QosTlmEncodeType {
    QOS_TLM_ENCODE_GPB = 0, /* Protocol Buffers wire format, see schema/vexlor_qos.proto */
    QOS_TLM_ENCODE_JSON = 1 /* unformatted JSON text (RFC 8259) */
} QosTlmEncodeType;

/*
 * Results of a sampling call. After a batch that was lost, by QOS_TLM_RESULT_FAILED or (not encoded or not stored, and
 * logged) by QOS_TLM_RESULT_DONE without an upload, the pass goes on behind it.
 */
typedef enum QosTlmResult {
    QOS_TLM_RESULT_DONE = 0,  /* end of the table: what was found was uploaded, or there was nothing */
    QOS_TLM_RESULT_MORE = 1,  /* batch limit: the batch was uploaded and records remain; call again */
    QOS_TLM_RESULT_FAILED = 2 /* nothing was uploaded, or the host refused it */
} QosTlmResult;

/* Values of QosTlmThreshold.op. The record's value stands on the left; both sides are unsigned 32-bit. */
typedef enum QosTlmThresholdOp {
    QOS_TLM_OP_EQUAL = 0,
    QOS_TLM_OP_GREATER = 1,
    QOS_TLM_OP_GREATER_EQUAL = 2,
    QOS_TLM_OP_LESS = 3,
    QOS_TLM_OP_LESS_EQUAL = 4 /* a larger code lets no record pass */
} QosTlmThresholdOp;

/* Values of QosTlmQueryParam.thresholdRelation, used with two thresholds; any other lets no record pass. */
typedef enum QosTlmThresholdRelation {
    QOS_TLM_RELATION_AND = 1,   /* both thresholds must pass */
    QOS_TLM_RELATION_SECOND = 2 /* the second threshold alone decides */
} QosTlmThresholdRelation;

#define QOS_TLM_CONDITION_MAX 32u
#define QOS_TLM_THRESHOLD_MAX 2u
#define QOS_TLM_CONDITION_NAME_SIZE 68u
#define QOS_TLM_CONDITION_VALUE_SIZE 34u
#define QOS_TLM_THRESHOLD_NAME_SIZE 65u
#define QOS_TLM_PAYLOAD_SIZE 32768u

/* Restricts one field of a record. A field that the path does not honour restricts nothing. */
typedef struct QosTlmCondition {
    char fieldName[QOS_TLM_CONDITION_NAME_SIZE]; /* "interface-name", "service-class", ...; ends at a NUL or the end */
    char value[QOS_TLM_CONDITION_VALUE_SIZE];    /* wanted value as text; ends at a NUL or the end of the field */
} QosTlmCondition;

/* Compares one number of a record. The first threshold names the field for both. */
typedef struct QosTlmThreshold {
    char fieldName[QOS_TLM_THRESHOLD_NAME_SIZE]; /* a leaf name of the path; an unknown name compares 0 */
    uint8_t op;                                  /* a QosTlmThresholdOp */
    uint8_t reserved[6];                         /* not read */
    uint64_t value;                              /* only the low 32 bits are compared */
} QosTlmThreshold;

/* The host's sampling request: read-only for the plug-in, valid for the length of the call. */
typedef struct QosTlmQueryParam {
    uint32_t encodeType;                               /* a QosTlmEncodeType */
    uint32_t reserved0;                                /* not read */
    uint32_t conditionNum;                             /* entries of conditions in use; more than 32 count as 32 */
    QosTlmCondition conditions[QOS_TLM_CONDITION_MAX]; /* all must hold */
    uint32_t thresholdNum;                             /* 0 none, 1 the first, 2 or more both */
    uint8_t thresholdRelation;                         /* a QosTlmThresholdRelation */
    uint8_t reserved1[7];                              /* not read */
    QosTlmThreshold thresholds[QOS_TLM_THRESHOLD_MAX];
    uint32_t periodCheck;       /* 1: a record passes at most once per selfDefPeriod; else off */
    uint32_t selfDefPeriod;     /* seconds */
    uint32_t suppressRedundant; /* 1: a record passes when it changed or redundantPeriod is over; thresholds and
                                   periodCheck are then not applied; else off */
    uint32_t redundantPeriod;   /* seconds */
} QosTlmQueryParam;

/* One batch of records on its way to the host. */
typedef struct QosTlmSampleData {
    uint32_t hostArg1;                  /* first argument of the sampling call, returned unchanged */
    uint32_t hostArg2;                  /* second argument, likewise */
    uint64_t collectStartTime;          /* milliseconds since 1970-01-01 00:00:00 */
    uint64_t collectEndTime;            /* the same value */
    uint64_t encodeTimeSpend;           /* microseconds spent encoding */
    uint32_t thresholdValue;            /* 0 in an uploaded buffer */
    uint32_t reserved;                  /* 0 */
    uint32_t recordCount;               /* records in data */
    uint32_t dataLen;                   /* bytes of data in use, at most QOS_TLM_PAYLOAD_SIZE */
    uint8_t data[QOS_TLM_PAYLOAD_SIZE]; /* a GPB message or JSON text (without NUL) */
} QosTlmSampleData;

QOS_TLM_STATIC_ASSERT(sizeof(QosTlmCondition) == 102, "QosTlmCondition is 102 bytes");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmCondition, value) == 68, "value at 68");
QOS_TLM_STATIC_ASSERT(sizeof(QosTlmThreshold) == 80, "QosTlmThreshold is 80 bytes");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmThreshold, op) == 65, "op at 65");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmThreshold, value) == 72, "value at 72");
QOS_TLM_STATIC_ASSERT(sizeof(QosTlmQueryParam) == 3464, "QosTlmQueryParam is 3464 bytes");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, encodeType) == 0, "encodeType at 0");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, conditionNum) == 8, "conditionNum at 8");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, conditions) == 12, "conditions at 12");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, thresholdNum) == 3276, "thresholdNum at 3276");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, thresholdRelation) == 3280, "thresholdRelation at 3280");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, thresholds) == 3288, "thresholds at 3288");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, periodCheck) == 3448, "periodCheck at 3448");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, selfDefPeriod) == 3452, "selfDefPeriod at 3452");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, suppressRedundant) == 3456, "suppressRedundant at 3456");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmQueryParam, redundantPeriod) == 3460, "redundantPeriod at 3460");
QOS_TLM_STATIC_ASSERT(sizeof(QosTlmSampleData) == 32816, "QosTlmSampleData is 32816 bytes");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, hostArg1) == 0, "hostArg1 at 0");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, hostArg2) == 4, "hostArg2 at 4");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, collectStartTime) == 8, "collectStartTime at 8");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, collectEndTime) == 16, "collectEndTime at 16");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, encodeTimeSpend) == 24, "encodeTimeSpend at 24");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, thresholdValue) == 32, "thresholdValue at 32");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, recordCount) == 40, "recordCount at 40");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, dataLen) == 44, "dataLen at 44");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmSampleData, data) == 48, "data at 48");

/*
 * The sampling entry points, one per path; the host gets them with the registration (nivex_qos/plugin.h) and may also
 * call them by name. hostArg1 and hostArg2 come back in the buffer and mean nothing to the plug-in. Each answers a
 * QosTlmResult.
 */
QOS_TLM_API uint32_t QOS_TLM_QueryPortEcnStat(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryPortBufStat(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryQueueBufStat(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryQueueStat(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryQueueDropStat(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryIngPortDropStat(uint32_t hostArg1, uint32_t hostArg2,
                                                  const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryTmBufStat(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryBufIngStat(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
QOS_TLM_API uint32_t QOS_TLM_QueryTmBufMonitorStat(uint32_t hostArg1, uint32_t hostArg2,
                                                   const QosTlmQueryParam* request);

/*
 * The dispatcher behind the entry points: allocates the buffer, lets the family fill it, uploads it if it holds
 * records, frees it. familyIndex is a QosTlmFamilyIndex; a larger one is answered like a path without a query function
 * (logged, QOS_TLM_RESULT_FAILED).
 */
QOS_TLM_API uint32_t QOS_TLM_QueryFunc(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request,
                                       uint32_t familyIndex);

/* Stores the two values in the header of the buffer; nothing for a null buffer. */
QOS_TLM_API void QOS_TLM_FullSampleData(uint32_t hostArg1, uint32_t hostArg2, QosTlmSampleData* sampleData);

/* When a batch ends, besides at the end of the table. */
typedef enum QosTlmBatchPolicy {
    QOS_TLM_BATCH_BY_COUNT = 0,  /* at the path's batch limit; a batch that outgrows the payload is refused whole */
    QOS_TLM_BATCH_BY_PAYLOAD = 1 /* also when the path's largest record might no longer fit: no record is lost */
} QosTlmBatchPolicy;

/*
 * Chooses when the batches of all paths end, from the next sampling call on; QOS_TLM_BATCH_BY_COUNT at load. A batch
 * that ends early is answered like one at the limit (QOS_TLM_RESULT_MORE), and the next call goes on with the record
 * that it ended before. Monitoring results in JSON always end their batches by payload. 0, or 1 for another value,
 * which changes nothing.
 */
QOS_TLM_API uint32_t QOS_TLM_SetBatchPolicy(uint32_t policy);

/* Fills a zeroed buffer with the next batch of a family's table; answers a QosTlmResult. */
typedef uint32_t (*QosTlmQueryFromDbFunc)(const QosTlmQueryParam* request, QosTlmSampleData* sampleData);

typedef struct QosTlmQueryFuncEntry {
    uint32_t type; /* equal to the row number */
    QosTlmQueryFromDbFunc queryFromDb;
} QosTlmQueryFuncEntry;

/* The dispatch table, indexed by QosTlmFamilyIndex; read-only. A null function means that the path has no query. */
QOS_TLM_API extern const QosTlmQueryFuncEntry g_qosTlmQueryFuncTable[QOS_TLM_FAMILY_NUM];

QOS_TLM_END_DECLS

#endif
