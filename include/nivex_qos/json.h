/*
 * The JSON writer: a tree as JSON text without white space (RFC 8259), built and printed by cJSON.
 *
 * The writer mirrors the tree as a cJSON document and returns a copy of the printed text in a block of the host's
 * allocator. cJSON's own memory never leaves it and is freed on every path. A failure ends the whole encoding: there is
 * no partial text. Status results are QosTlmEncodeStatus.
 * The tree must be valid (QOS_TLM_ValidateTree) and cJSON loaded (nivex_qos/cjson.h).
 */
#ifndef NIVEX_QOS_JSON_H
#define NIVEX_QOS_JSON_H

#include "nivex_qos/cjson.h"
#include "nivex_qos/tree.h"

QOS_TLM_BEGIN_DECLS

/* The text of an object with top as its one member, for the caller to free; *outLen receives its length. Or null. */
QOS_TLM_API void* QOS_TLM_EncodeJson(const QosTlmNode* top, uint32_t* outLen);

/* The length of that text, found by building and printing it; 0 on failure. */
QOS_TLM_API uint32_t QOS_TLM_EstimatePackageSizeJson(const QosTlmNode* top);

/* Adds node and its later siblings, with all under them, to a cJSON object or array. */
QOS_TLM_API uint32_t QOS_TLM_WrapJsonRecursive(const QosTlmNode* node, struct cJSON* container);

/* Adds one list (code 1, as an array) or list entry (code 2, as an element); writes nothing for another code. */
QOS_TLM_API uint32_t QOS_TLM_DealRepeatNode(const QosTlmNode* node, struct cJSON* container);

/* Adds one leaf to a cJSON object; QOS_TLM_ENC_CJSON_FAIL (not logged) for an unknown value type. */
QOS_TLM_API uint32_t QOS_TLM_WrapJsonLeaf(const QosTlmNodeData* leaf, struct cJSON* object);

/* Prints and frees a document that the caller built; the text as from QOS_TLM_EncodeJson, or null. */
QOS_TLM_API char* QOS_TLM_EncodeJsonUnformatted(struct cJSON* document, uint32_t* outLen);

QOS_TLM_END_DECLS

#endif
