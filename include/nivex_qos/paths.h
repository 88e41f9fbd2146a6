/*
 * The list of the paths, from which the plug-in makes its tables and entry points; hosts and tools may use it too.
 *
 * QOS_TLM_PATHS(PATH) expands PATH(NAME, list, entryPoint, queryFromDb, batchLimit) in the order of QosTlmFamilyIndex:
 *   NAME         the path is QOS_TLM_FAMILY_NAME
 *   list         the YANG list that is sampled, also the path's alias; its container has the same name and an "s"
 *   entryPoint   what the host calls (nivex_qos/sample.h)
 *   queryFromDb  the query behind it (the family's header)
 *   batchLimit   the records after which a call stops
 */
#ifndef NIVEX_QOS_PATHS_H
#define NIVEX_QOS_PATHS_H

#include "nivex_qos/sample.h"

#define QOS_TLM_PATHS(PATH)                                                                                           \
    PATH(PORT_ECN, "port-ecn-statistics", QOS_TLM_QueryPortEcnStat, QOS_TLM_QueryPortEcnStatFromDb, 600)              \
    PATH(PORT_BUF, "port-buffer-usage-statistics", QOS_TLM_QueryPortBufStat, QOS_TLM_QueryPortBufStatFromDb, 200)     \
    PATH(QUEUE_BUF, "queue-buffer-usage-statistics", QOS_TLM_QueryQueueBufStat, QOS_TLM_QueryQueueBufStatFromDb, 200) \
    PATH(QUEUE, "queue-statistics", QOS_TLM_QueryQueueStat, QOS_TLM_QueryQueueStatFromDb, 128)                        \
    PATH(QUEUE_DROP, "queue-drop-statistics", QOS_TLM_QueryQueueDropStat, QOS_TLM_QueryQueueDropStatFromDb, 65)       \
    PATH(ING_PORT_DROP, "ing-port-drop-statistics", QOS_TLM_QueryIngPortDropStat, QOS_TLM_QueryIngPortDropStatFromDb, \
         400)                                                                                                         \
    PATH(TM_BUF, "tm-chip-buffer-usage-statistics", QOS_TLM_QueryTmBufStat, QOS_TLM_QueryTmBufStatFromDb, 100)        \
    PATH(BUF_ING, "intf-ing-buf-usage-statistics", QOS_TLM_QueryBufIngStat, QOS_TLM_QueryBufIngStatFromDb, 150)       \
    PATH(BUF_MONITOR, "interface-monitoring-result", QOS_TLM_QueryTmBufMonitorStat,                                   \
         QOS_TLM_QueryTmBufMonitorStatFromDb, 200)

/* What stands before container and list in the xpath of each path. */
#define QOS_TLM_XPATH_START "vexlor-qos:qos/global-query/"

/* QOS_TLM_BATCH_LIMIT_NAME of each path. */
#define QOS_TLM_BATCH_LIMIT_OF(NAME, list, entryPoint, queryFromDb, batchLimit) QOS_TLM_BATCH_LIMIT_##NAME = batchLimit,
enum QosTlmBatchLimit { QOS_TLM_PATHS(QOS_TLM_BATCH_LIMIT_OF) };
#undef QOS_TLM_BATCH_LIMIT_OF

#endif
