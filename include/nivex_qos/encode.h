/*
 * The encoding front: a finished tree becomes bytes.
 *
 * QOS_TLM_Encoding validates the tree and picks the encoder by encode type. The block that it returns belongs to the
 * caller, who frees it with NIVEX_FreeBuff. The functions keep no state but the throttle of QOS_TLM_LogEncode.
 */
#ifndef NIVEX_QOS_ENCODE_H
#define NIVEX_QOS_ENCODE_H

#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* Status of an encoder step. */
typedef enum QosTlmEncodeStatus {
    QOS_TLM_ENC_SUCCESS = 0,
    QOS_TLM_ENC_VALIDATE_FAIL = 1,  /* the tree has a leaf or node that cannot be encoded */
    QOS_TLM_ENC_MALLOC_FAIL = 2,    /* the host's allocator gave nothing */
    QOS_TLM_ENC_CJSON_FAIL = 3,     /* a cJSON call failed */
    QOS_TLM_ENC_WRAP_FAIL = 4,      /* a lower level failed */
    QOS_TLM_ENC_LEN_EXCEED = 5,     /* a varint is longer than the room for it */
    QOS_TLM_ENC_SAFE_FUNC_FAIL = 6, /* a bounded copy failed */
    QOS_TLM_ENC_UNEXPECTED = 7      /* used nowhere */
} QosTlmEncodeStatus;

#define QOS_TLM_ENC_STATUS_NUM 8u

/*
 * Encodes the tree under top. encodeType is a QosTlmEncodeType; another is answered with null. *outLen receives the
 * number of bytes; a JSON text has a NUL behind them that is not counted. Null, with outLen untouched, when an argument
 * is null or anything fails (logged). A GPB top node without children gives a block with *outLen 0.
 */
QOS_TLM_API void* QOS_TLM_Encoding(const QosTlmNode* top, uint32_t encodeType, uint32_t* outLen);

/*
 * The length that QOS_TLM_Encoding would give for a valid tree, in bytes (GPB: an upper bound when an inner node is
 * empty); 0 for a null top or an unknown encode type. The JSON estimate builds and prints the whole text.
 */
QOS_TLM_API uint32_t QOS_TLM_EstimatePackageSize(const QosTlmNode* top, uint32_t encodeType);

/* 0 when every node from here on (children and later siblings) has a name and every string leaf a text, else 1. */
QOS_TLM_API uint32_t QOS_TLM_ValidateTree(const QosTlmNode* node);

/*
 * Logs an encoder failure as "[TLM Encode] <status text>, value=<value>, line=<site>". Repeats of the last site of a
 * status are counted and only every 600th is logged. Nothing for status 0 or above 7.
 */
QOS_TLM_API void QOS_TLM_LogEncode(uint32_t status, uint64_t value, uint32_t site);

typedef struct QosTlmEncodeFuncEntry {
    void* (*encode)(const QosTlmNode* top, uint32_t* outLen);
    uint32_t (*estimate)(const QosTlmNode* top);
} QosTlmEncodeFuncEntry;

#define QOS_TLM_ENCODE_TYPE_NUM 2u

/* The encoders, indexed by QosTlmEncodeType; read-only. */
QOS_TLM_API extern const QosTlmEncodeFuncEntry g_qosTlmEncodeFunc[QOS_TLM_ENCODE_TYPE_NUM];

QOS_TLM_END_DECLS

#endif
