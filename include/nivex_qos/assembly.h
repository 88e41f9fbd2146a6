/*
 * Sample assembly: a finished tree becomes the payload of a sample-data buffer, stamped with its times.
 *
 * A family calls QOS_TLM_EncodingData once per sampling call. No state survives a call. Clock values come from the
 * platform (milliseconds and seconds since 1970) and from gettimeofday (encoding time).
 */
#ifndef NIVEX_QOS_ASSEMBLY_H
#define NIVEX_QOS_ASSEMBLY_H

#include "nivex_qos/sample.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

struct KatSystime; /* the platform's system time, see the platform's own header */

/* One encoding; zero it before use. */
typedef struct QosTlmEncodeResult {
    uint64_t collectStartTime; /* milliseconds since 1970, taken when encoding ended */
    uint64_t collectEndTime;   /* the same value */
    uint64_t encodeTimeSpend;  /* microseconds that the encoder took */
    uint32_t thresholdValue;   /* set by nobody */
    uint32_t dataLen;          /* bytes of data */
    uint8_t* data;             /* the encoded tree; whoever holds the record frees it with NIVEX_FreeBuff */
} QosTlmEncodeResult;

/*
 * Encodes the tree under root and appends it to the buffer's payload, replacing recordCount by count. Nothing happens
 * for count 0; on failure (logged), a payload that would not fit included, the buffer stays as it was.
 */
QOS_TLM_API void QOS_TLM_EncodingData(const QosTlmNode* root, uint32_t encodeType, uint32_t count,
                                      QosTlmSampleData* sampleData);

/*
 * Encodes with timing: GPB unless the low byte of encodeType is QOS_TLM_ENCODE_JSON. 0, or 1 (logged) when the encoder
 * gave no block; the times are then untouched.
 */
QOS_TLM_API uint32_t QOS_TLM_EncodeSampleData(uint32_t encodeType, const QosTlmNode* root, QosTlmEncodeResult* result);

/*
 * Appends an encoding to the buffer's payload and frees its data, also when the payload has no room (1, logged, buffer
 * untouched). 1 without freeing anything when an argument or the data is null.
 */
QOS_TLM_API uint32_t QOS_TLM_SetSampleData(uint32_t count, QosTlmEncodeResult* result, QosTlmSampleData* sampleData);

/* Wall-clock time; both outputs stay as they were when the clock cannot be read (logged) or a pointer is null. */
QOS_TLM_API void QOS_TLM_GetSystimeSecUs(uint32_t* seconds, uint32_t* microseconds);

/* Microseconds from start to end; 0 when the end lies before the start. */
QOS_TLM_API uint64_t QOS_TLM_GetUsToTimeSpend(uint32_t startSec, uint32_t startUs, uint32_t endSec, uint32_t endUs);

/* Milliseconds since 1970 of a platform time; 0 for null. */
QOS_TLM_API uint64_t QOS_TLM_ConvertSystimeToMs(const struct KatSystime* time);

/* Now, in seconds since 1970 (low 32 bits). */
QOS_TLM_API void QOS_TLM_SetCurTime(uint32_t* seconds);

/* Now, in milliseconds since 1970, into both. */
QOS_TLM_API void QOS_TLM_SetCollectTime(uint64_t* start, uint64_t* end);

QOS_TLM_END_DECLS

#endif
