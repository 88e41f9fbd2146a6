/*
 * The cJSON binding: "libcjson.so" is opened at start-up and reached only through these ten entry points.
 *
 * QOS_TLM_InitPlugin calls QOS_TLM_InitCjson first and gives up when it fails, so the wrappers always find their slots
 * filled; they do not test them. Items and printed texts are cJSON's memory: an item added to a container belongs to
 * it, the rest goes back through QOS_TLM_FreeCjsonNode and QOS_TLM_FreeCjson. Once loaded, the library stays.
 */
#ifndef NIVEX_QOS_CJSON_H
#define NIVEX_QOS_CJSON_H

#include "nivex_qos/export.h"

QOS_TLM_BEGIN_DECLS

struct cJSON; /* cJSON's item, never looked into */

/* The entry points, in slot order 0 to 9, with the signatures of cJSON.h. */
typedef struct QosTlmCjsonFuncTable {
    struct cJSON* (*createNumber)(double number);
    struct cJSON* (*createString)(const char* text);
    struct cJSON* (*createBool)(int flag);
    struct cJSON* (*createObject)(void);
    struct cJSON* (*createArray)(void);
    void (*addItemToObj)(struct cJSON* object, const char* name, struct cJSON* item);
    void (*addItemToArr)(struct cJSON* array, struct cJSON* item);
    void (*cjsonFree)(void* text);
    void (*nodeFree)(struct cJSON* item);
    char* (*printUnfmt)(const struct cJSON* item);
} QosTlmCjsonFuncTable;

/* The handle from dlopen; null while cJSON is not loaded. */
QOS_TLM_API extern void* g_qosTlmCjsonHandle;
QOS_TLM_API extern QosTlmCjsonFuncTable g_qosTlmCjsonFunc;

/* Opens the library, has the patch service accept it, fills the table. 0, or 1 (logged) with the library closed. */
QOS_TLM_API uint32_t QOS_TLM_InitCjson(void);

/* The same step for one slot of the library that g_qosTlmCjsonHandle names: 0, or 1 (logged) when it is missing. */
QOS_TLM_API uint32_t QOS_TLM_InitCjsonCreateNumber(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonCreateString(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonCreateBool(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonCreateObject(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonCreateArray(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonAddItemToObj(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonAddItemToArr(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonFree(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonNodeFree(void);
QOS_TLM_API uint32_t QOS_TLM_InitCjsonPrintUnfmt(void);

/* The wrappers: each calls its slot. A null argument is logged and answered with null, or nothing is done. */
QOS_TLM_API struct cJSON* QOS_TLM_CreateCjsonNumber(double number);
QOS_TLM_API struct cJSON* QOS_TLM_CreateCjsonString(const char* text);
QOS_TLM_API struct cJSON* QOS_TLM_CreateCjsonBool(int flag);
QOS_TLM_API struct cJSON* QOS_TLM_CreateCjsonObject(void);
QOS_TLM_API struct cJSON* QOS_TLM_CreateCjsonArray(void);
QOS_TLM_API void QOS_TLM_AddCjsonItemToObj(struct cJSON* object, const char* name, struct cJSON* item);
QOS_TLM_API void QOS_TLM_AddCjsonItemToArr(struct cJSON* array, struct cJSON* item);
QOS_TLM_API char* QOS_TLM_PrtUnfmtCjson(const struct cJSON* item);
QOS_TLM_API void QOS_TLM_FreeCjson(char* text);
QOS_TLM_API void QOS_TLM_FreeCjsonNode(struct cJSON* item);

QOS_TLM_END_DECLS

#endif
