/*
 * The data tree: what a sampling call says about its records, before either encoding.
 *
 * Inner nodes are made with QOS_TLM_CreateNode and attached at once with QOS_TLM_AddChild; leaves are made and attached
 * by the typed adds; QOS_TLM_ReleaseNode of the top node frees everything. A tree belongs to the call that builds it
 * and is used on one thread. Names are kept by pointer and must outlive the tree. Each node is one block of the host's
 * allocator, a string leaf's own copy of its text a second one.
 */
#ifndef NIVEX_QOS_TREE_H
#define NIVEX_QOS_TREE_H

#include <stddef.h>

#include "nivex_qos/export.h"

QOS_TLM_BEGIN_DECLS

/* Value type of a leaf. */
typedef enum QosTlmValueType {
    QOS_TLM_VALUE_BOOL = 0,   /* GPB varint of the stored value, JSON true when it is not 0 */
    QOS_TLM_VALUE_UINT32 = 1, /* GPB varint, JSON number */
    QOS_TLM_VALUE_UINT64 = 2, /* GPB varint, JSON number of the nearest double (exact up to 2^53) */
    QOS_TLM_VALUE_STRING = 3  /* GPB length-delimited, JSON string */
} QosTlmValueType;

/* What an inner node becomes in JSON; in GPB each is a length-delimited field. */
typedef enum QosTlmRepeatType {
    QOS_TLM_REPEAT_NONE = 0, /* an object under the node's name */
    QOS_TLM_REPEAT_LIST = 1, /* an array under the node's name */
    QOS_TLM_REPEAT_ENTRY = 2 /* an object appended to the enclosing array */
} QosTlmRepeatType;

/* The data group of a node: all that the leaf writers look at. */
typedef struct QosTlmNodeData {
    const char* name;     /* JSON key; not owned */
    uint32_t valueType;   /* a QosTlmValueType; 0 in an inner node */
    uint32_t fieldNumber; /* GPB field number */
    uint64_t value;       /* bool and uint32 in the low half, uint64, or the address of the leaf's own text */
    uint32_t valueLen;    /* 1 bool, 4 uint32, 8 uint64, text length + 1 string, 0 inner node */
} QosTlmNodeData;

typedef struct QosTlmNode {
    uint32_t isLeaf; /* 1 leaf, 0 inner node */
    QosTlmNodeData data;
    uint16_t repeatType; /* a QosTlmRepeatType; 0 in a leaf */
    struct QosTlmNode* next;
    struct QosTlmNode* firstChild;
    struct QosTlmNode* lastChild; /* where the next child is appended; null together with firstChild */
} QosTlmNode;

#if UINTPTR_MAX == UINT64_MAX
QOS_TLM_STATIC_ASSERT(sizeof(QosTlmNodeData) == 32, "the data group has 32 bytes");
QOS_TLM_STATIC_ASSERT(sizeof(QosTlmNode) == 72, "a node has 72 bytes");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmNode, data) == 8, "data at 8");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmNode, repeatType) == 40, "repeatType at 40");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmNode, next) == 48, "next at 48");
#endif

/* A new inner node without children, or null when memory runs out (not logged). Any name and repeat type is taken. */
QOS_TLM_API QosTlmNode* QOS_TLM_CreateNode(const char* name, uint32_t fieldNumber, uint16_t repeatType);

/* Appends a freshly made child; a node is attached once. Nothing happens when either is null. */
QOS_TLM_API void QOS_TLM_AddChild(QosTlmNode* parent, QosTlmNode* child);

/*
 * The typed adds: 0 when the leaf is attached, 1 (logged) when an argument is null or memory runs out, the tree then
 * being as before. The name is not tested here; validation refuses a null one. A bool is stored as given. A string leaf
 * whose text cannot be copied is attached without text (0, logged); validation then refuses the tree.
 */
QOS_TLM_API uint32_t QOS_TLM_AddChildString(QosTlmNode* parent, const char* name, const char* value,
                                            uint32_t fieldNumber);
QOS_TLM_API uint32_t QOS_TLM_AddChildBool(QosTlmNode* parent, const char* name, uint32_t value, uint32_t fieldNumber);
QOS_TLM_API uint32_t QOS_TLM_AddChildUint32(QosTlmNode* parent, const char* name, uint32_t value, uint32_t fieldNumber);
QOS_TLM_API uint32_t QOS_TLM_AddChildUint64(QosTlmNode* parent, const char* name, uint64_t value, uint32_t fieldNumber);

/* Frees the node, all under it, and every sibling after it. Never call it for a node that is attached to a parent. */
QOS_TLM_API void QOS_TLM_ReleaseNode(QosTlmNode* node);

/*
 * A copy of src in a block of the host's allocator, for the caller to free; its length without the NUL goes to outLen
 * unless that is null. Null for a null src, and (logged) when memory or the bounded copy fails.
 */
QOS_TLM_API char* QOS_TLM_ConvertToStr(const char* src, uint32_t* outLen);

QOS_TLM_END_DECLS

#endif
