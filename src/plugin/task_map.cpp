#include "nivex_qos/plugin.h"

// Row = QosTlmFamilyIndex. The host samples the list inside its container, whose name is the list's with an "s".
const QosTlmTaskMapEntry g_qosTlmTaskMap[QOS_TLM_FAMILY_NUM] = {
    {"port-ecn-statistics", "vexlor-qos:qos/global-query/port-ecn-statisticss/port-ecn-statistics",
     QOS_TLM_QueryPortEcnStat, QOS_TLM_StopTaskFunc},
    {"port-buffer-usage-statistics",
     "vexlor-qos:qos/global-query/port-buffer-usage-statisticss/port-buffer-usage-statistics", QOS_TLM_QueryPortBufStat,
     QOS_TLM_StopTaskFunc},
    {"queue-buffer-usage-statistics",
     "vexlor-qos:qos/global-query/queue-buffer-usage-statisticss/queue-buffer-usage-statistics",
     QOS_TLM_QueryQueueBufStat, QOS_TLM_StopTaskFunc},
    {"queue-statistics", "vexlor-qos:qos/global-query/queue-statisticss/queue-statistics", QOS_TLM_QueryQueueStat,
     QOS_TLM_StopTaskFunc},
    {"queue-drop-statistics", "vexlor-qos:qos/global-query/queue-drop-statisticss/queue-drop-statistics",
     QOS_TLM_QueryQueueDropStat, QOS_TLM_StopTaskFunc},
    {"ing-port-drop-statistics", "vexlor-qos:qos/global-query/ing-port-drop-statisticss/ing-port-drop-statistics",
     QOS_TLM_QueryIngPortDropStat, QOS_TLM_StopTaskFunc},
    {"tm-chip-buffer-usage-statistics",
     "vexlor-qos:qos/global-query/tm-chip-buffer-usage-statisticss/tm-chip-buffer-usage-statistics",
     QOS_TLM_QueryTmBufStat, QOS_TLM_StopTaskFunc},
    {"intf-ing-buf-usage-statistics",
     "vexlor-qos:qos/global-query/intf-ing-buf-usage-statisticss/intf-ing-buf-usage-statistics",
     QOS_TLM_QueryBufIngStat, QOS_TLM_StopTaskFunc},
    {"interface-monitoring-result",
     "vexlor-qos:qos/global-query/interface-monitoring-results/interface-monitoring-result",
     QOS_TLM_QueryTmBufMonitorStat, QOS_TLM_StopTaskFunc},
};
