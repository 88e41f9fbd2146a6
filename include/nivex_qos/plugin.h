/*
 * Start-up: what a host calls once after loading the library, and the records of the registration.
 *
 * QOS_TLM_InitPlugin loads cJSON, fetches the host's function table and registers the sampling paths. Call it
 * once, before any sampling call; there is no shutdown, nothing is unregistered. The host owns its function table and
 * keeps it for the life of the process; the registration record lives on the plug-in's stack only during the call that
 * carries it.
 */
#ifndef NIVEX_QOS_PLUGIN_H
#define NIVEX_QOS_PLUGIN_H

#include "nivex_qos/sample.h"

QOS_TLM_BEGIN_DECLS

#define QOS_TLM_ALIAS_SIZE 32u
#define QOS_TLM_XPATH_SIZE 512u

typedef uint32_t (*QosTlmQueryFunc)(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request);
typedef uint32_t (*QosTlmStopFunc)(void);

/* What the host learns of one path. */
typedef struct QosTlmXpathRegInfo {
    char xpathAlias[QOS_TLM_ALIAS_SIZE]; /* the path's short name */
    uint32_t regParam1;                  /* always 100 */
    uint32_t regParam2;                  /* always 1000 */
    QosTlmQueryFunc queryFunc;           /* the path's sampling entry point */
    QosTlmStopFunc stopFunc;             /* QOS_TLM_StopTaskFunc */
    uint8_t reserved[16];                /* 0 */
} QosTlmXpathRegInfo;

/* The host's function table. The table and each slot may be null; the plug-in tests both before each use. */
typedef struct QosTlmFrmVtbl {
    void (*hostDefined[3])(void); /* never called by the plug-in */
    /* Registers a path; 0 = registered. The xpath stays valid for the life of the library, the record does not. */
    uint32_t (*sampleXpathRegister)(uint32_t moduleId, const char* xpath, const QosTlmXpathRegInfo* info);
    /* Takes one batch; 0 = taken. The buffer is gone when the call returns. */
    uint32_t (*sampleDataUpload)(uint32_t moduleId, const QosTlmSampleData* sampleData);
} QosTlmFrmVtbl;

/* One row of the task map. */
typedef struct QosTlmTaskMapEntry {
    char xpathAlias[QOS_TLM_ALIAS_SIZE];
    char xpath[QOS_TLM_XPATH_SIZE];
    QosTlmQueryFunc queryFunc;
    QosTlmStopFunc stopFunc;
} QosTlmTaskMapEntry;

QOS_TLM_STATIC_ASSERT(sizeof(QosTlmXpathRegInfo) == 72, "QosTlmXpathRegInfo is 72 bytes");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmXpathRegInfo, xpathAlias) == 0, "xpathAlias at 0");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmXpathRegInfo, regParam1) == 32, "regParam1 at 32");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmXpathRegInfo, regParam2) == 36, "regParam2 at 36");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmXpathRegInfo, queryFunc) == 40, "queryFunc at 40");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmXpathRegInfo, stopFunc) == 48, "stopFunc at 48");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmXpathRegInfo, reserved) == 56, "reserved at 56");
QOS_TLM_STATIC_ASSERT(sizeof(QosTlmTaskMapEntry) == 560, "QosTlmTaskMapEntry is 560 bytes");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmFrmVtbl, sampleXpathRegister) == 3 * sizeof(void*), "slot 3");
QOS_TLM_STATIC_ASSERT(offsetof(QosTlmFrmVtbl, sampleDataUpload) == 4 * sizeof(void*), "slot 4");

/* First argument of every call into the host's table; 0 until start-up. */
QOS_TLM_API extern uint32_t g_qosTlmModuleId;

/* The host's function table, written by COMP_GetVTable during start-up; null until then. */
QOS_TLM_API extern const QosTlmFrmVtbl* g_qosTlmFrmVtbl;

/* The paths, row = QosTlmFamilyIndex; read-only. */
QOS_TLM_API extern const QosTlmTaskMapEntry g_qosTlmTaskMap[QOS_TLM_FAMILY_NUM];

/*
 * Start-up. moduleId is the host's number for this plug-in. Answers 0 when the plug-in runs (failed registrations are
 * only logged), 1 when cJSON cannot be loaded, or the code of COMP_GetVTable: cJSON then stays open and the module id
 * set. A further call does all of it again.
 */
QOS_TLM_API uint32_t QOS_TLM_InitPlugin(uint32_t moduleId);

/* Stores the module id; may be called at any time between sampling calls. */
QOS_TLM_API void QOS_TLM_SetModuleId(uint32_t moduleId);

/* Registers the paths through g_qosTlmFrmVtbl; the first refusal is logged and ends the registration. */
QOS_TLM_API void QOS_TLM_RegisterXpath(void);

/* The stop function of every path: answers 0 and does nothing else. */
QOS_TLM_API uint32_t QOS_TLM_StopTaskFunc(void);

QOS_TLM_END_DECLS

#endif
