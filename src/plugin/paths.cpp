#include "nivex_qos/paths.h"

#include "nivex_qos/buf_ing_stat.h"
#include "nivex_qos/buf_monitor_stat.h"
#include "nivex_qos/ing_port_drop_stat.h"
#include "nivex_qos/plugin.h"
#include "nivex_qos/port_buf_stat.h"
#include "nivex_qos/port_ecn_stat.h"
#include "nivex_qos/queue_buf_stat.h"
#include "nivex_qos/queue_drop_stat.h"
#include "nivex_qos/queue_stat.h"
#include "nivex_qos/tm_buf_stat.h"

// The two tables stand apart from what uses them: where a compiler sees these rows it may take them for granted, but
// the process can supply tables of its own under their names.

#define TASK_MAP_ROW(NAME, list, entryPoint, queryFromDb, batchLimit) \
    {list, QOS_TLM_XPATH_START list "s/" list, entryPoint, QOS_TLM_StopTaskFunc},
const QosTlmTaskMapEntry g_qosTlmTaskMap[QOS_TLM_FAMILY_NUM] = {QOS_TLM_PATHS(TASK_MAP_ROW)};

#define QUERY_ROW(NAME, list, entryPoint, queryFromDb, batchLimit) {QOS_TLM_FAMILY_##NAME, queryFromDb},
const QosTlmQueryFuncEntry g_qosTlmQueryFuncTable[QOS_TLM_FAMILY_NUM] = {QOS_TLM_PATHS(QUERY_ROW)};

namespace {

#define FAMILY_INDEX(NAME, list, entryPoint, queryFromDb, batchLimit) QOS_TLM_FAMILY_##NAME,
constexpr uint32_t kInOrder[] = {QOS_TLM_PATHS(FAMILY_INDEX)};
constexpr bool isInOrder() {
    for (uint32_t row = 0; row < QOS_TLM_FAMILY_NUM; ++row) {
        if (kInOrder[row] != row) {
            return false;
        }
    }
    return sizeof kInOrder == QOS_TLM_FAMILY_NUM * sizeof kInOrder[0];
}
static_assert(isInOrder(), "the list of paths follows QosTlmFamilyIndex");

}  // namespace
