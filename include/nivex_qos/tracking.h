/*
 * What the plug-in remembers between calls: the records that a pass has sent, their last digest, their last time.
 *
 * Three process-wide tables, zero at load and never locked: sampling calls are made one at a time. familyIndex is a
 * QosTlmFamilyIndex and selects the family's part of each table.
 */
#ifndef NIVEX_QOS_TRACKING_H
#define NIVEX_QOS_TRACKING_H

#include "nivex_qos/sample.h"

QOS_TLM_BEGIN_DECLS

#define QOS_TLM_HASH_BUCKET_NUM 101u
#define QOS_TLM_TRACK_SLOT_NUM 256u    /* keys that the history and the period table can hold, all families together */
#define QOS_TLM_TRACK_SUB_INDEX_NUM 8u /* queues of an interface */
#define QOS_TLM_TRACK_FAMILY_NUM 10u   /* columns; those from QOS_TLM_FAMILY_NUM on are unused */

/* A sent key. A bucket is a node whose key is unused and whose next is the first node of the chain. */
typedef struct QosTlmHashNode {
    uint32_t key;
    struct QosTlmHashNode* next;
} QosTlmHashNode;

/* Digests of one key; key 0 marks a free slot. */
typedef struct QosTlmHisSlot {
    uint32_t key;
    uint64_t digest[QOS_TLM_TRACK_SUB_INDEX_NUM][QOS_TLM_TRACK_FAMILY_NUM];
} QosTlmHisSlot;

/* Times of one key in seconds since 1970 (low 32 bits), 0 = never; key 0 marks a free slot. */
typedef struct QosTlmStatTimeSlot {
    uint32_t key;
    uint32_t time[QOS_TLM_TRACK_SUB_INDEX_NUM][QOS_TLM_TRACK_FAMILY_NUM];
} QosTlmStatTimeSlot;

QOS_TLM_API extern QosTlmHashNode g_qosTlmHashData[QOS_TLM_FAMILY_NUM][QOS_TLM_HASH_BUCKET_NUM];
QOS_TLM_API extern QosTlmHisSlot g_qosTlmHisData[QOS_TLM_TRACK_SLOT_NUM];
QOS_TLM_API extern QosTlmStatTimeSlot g_qosTlmStatTime[QOS_TLM_TRACK_SLOT_NUM];

/*
 * The sent keys of a family's current pass. Insert takes one block of the host's allocator (a failure is logged and the
 * key not recorded) and does not look for the key first; find answers 1 or 0; release frees them all. A familyIndex
 * from QOS_TLM_FAMILY_NUM on is never found and changes nothing. Whoever changes the chains as well may put nodes,
 * blocks of the host's allocator, at their heads and take nodes from there; a change further down may go unseen.
 */
QOS_TLM_API void QOS_HashInsert(uint32_t familyIndex, uint32_t key);
QOS_TLM_API uint32_t QOS_HashFind(uint32_t familyIndex, uint32_t key);
QOS_TLM_API void QOS_HashRelease(uint32_t familyIndex);

/* Folds a value into a digest: *digest = value ^ (*digest rotated left by 9). Start from 0; the order matters. */
QOS_TLM_API void QOS_TLM_IntegerHash(uint64_t* digest, uint64_t value);

/*
 * 1 when the digest equals the one stored for (key, subIndex, familyIndex), else 0 and the digest is stored. 0 and
 * nothing stored for a 257th key, a subIndex of 8 or more or a familyIndex above 9. Key 0 is never found.
 */
QOS_TLM_API uint32_t QOS_TLM_IsRedundantData(uint32_t key, uint32_t subIndex, uint64_t digest, uint32_t familyIndex);

/*
 * 1 when more than period seconds have passed since the time stored for (key, subIndex, familyIndex), which is then set
 * to now; else 0. A new key is stored with now and answered 0; a key that is known, but not for this subIndex and
 * family, is over its period at once. The limits are those of QOS_TLM_IsRedundantData.
 */
QOS_TLM_API uint32_t QOS_TLM_IsOverPeriod(uint32_t key, uint32_t subIndex, uint32_t familyIndex, uint32_t period);

QOS_TLM_END_DECLS

#endif
