#include "nivex_qos/buf_ing_stat.h"
#include "nivex_qos/buf_monitor_stat.h"
#include "nivex_qos/ing_port_drop_stat.h"
#include "nivex_qos/log.h"
#include "nivex_qos/plugin.h"
#include "nivex_qos/port_buf_stat.h"
#include "nivex_qos/port_ecn_stat.h"
#include "nivex_qos/queue_buf_stat.h"
#include "nivex_qos/queue_drop_stat.h"
#include "nivex_qos/queue_stat.h"
#include "nivex_qos/sample.h"
#include "nivex_qos/tm_buf_stat.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"

const QosTlmQueryFuncEntry g_qosTlmQueryFuncTable[QOS_TLM_FAMILY_NUM] = {
    {QOS_TLM_FAMILY_PORT_ECN, QOS_TLM_QueryPortEcnStatFromDb},
    {QOS_TLM_FAMILY_PORT_BUF, QOS_TLM_QueryPortBufStatFromDb},
    {QOS_TLM_FAMILY_QUEUE_BUF, QOS_TLM_QueryQueueBufStatFromDb},
    {QOS_TLM_FAMILY_QUEUE, QOS_TLM_QueryQueueStatFromDb},
    {QOS_TLM_FAMILY_QUEUE_DROP, QOS_TLM_QueryQueueDropStatFromDb},
    {QOS_TLM_FAMILY_ING_PORT_DROP, QOS_TLM_QueryIngPortDropStatFromDb},
    {QOS_TLM_FAMILY_TM_BUF, QOS_TLM_QueryTmBufStatFromDb},
    {QOS_TLM_FAMILY_BUF_ING, QOS_TLM_QueryBufIngStatFromDb},
    {QOS_TLM_FAMILY_BUF_MONITOR, QOS_TLM_QueryTmBufMonitorStatFromDb},
};

namespace {

uint32_t fail(const char* message) {
    QOS_TLM_DiagErr("%s", message);
    return QOS_TLM_RESULT_FAILED;
}

uint32_t upload(uint32_t hostArg1, uint32_t hostArg2, QosTlmSampleData* sampleData) {
    QOS_TLM_FullSampleData(hostArg1, hostArg2, sampleData);
    if (g_qosTlmFrmVtbl == nullptr || g_qosTlmFrmVtbl->sampleDataUpload == nullptr) {
        return fail("[Tlm QueryFunc] g_qosTlmFrmVtbl or sampleDataUpload is null.");
    }
    if (g_qosTlmFrmVtbl->sampleDataUpload(g_qosTlmModuleId, sampleData) != 0) {
        return fail("[Tlm QueryFunc] upload sample data failed.");
    }
    return QOS_TLM_RESULT_DONE;
}

// Everything between getting the buffer and giving it back.
uint32_t queryAndUpload(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request, uint32_t familyIndex,
                        QosTlmSampleData* sampleData) {
    if (memset_s(sampleData, sizeof *sampleData, 0, sizeof *sampleData) != 0) {
        return QOS_TLM_RESULT_FAILED;
    }
    const QosTlmQueryFromDbFunc query =
        familyIndex < QOS_TLM_FAMILY_NUM ? g_qosTlmQueryFuncTable[familyIndex].queryFromDb : nullptr;
    if (query == nullptr) {
        return fail("[Tlm QueryFunc] no query func.");
    }
    const uint32_t result = query(request, sampleData);
    if (result == QOS_TLM_RESULT_FAILED) {
        return fail("[Tlm QueryFunc] query data failed.");
    }
    // A batch that could not be stored counts as nothing found, even when the family would go on.
    if (sampleData->recordCount == 0) {
        return QOS_TLM_RESULT_DONE;
    }
    const uint32_t uploaded = upload(hostArg1, hostArg2, sampleData);
    return uploaded == QOS_TLM_RESULT_DONE ? result : uploaded;
}

}  // namespace

uint32_t QOS_TLM_QueryFunc(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request,
                           uint32_t familyIndex) {
    auto* sampleData = static_cast<QosTlmSampleData*>(NIVEX_AllocBuff(sizeof(QosTlmSampleData)));
    if (sampleData == nullptr) {
        return fail("[Tlm QueryFunc] sampleData alloc buff failed.");
    }
    const uint32_t result = queryAndUpload(hostArg1, hostArg2, request, familyIndex, sampleData);
    NIVEX_FreeBuff(sampleData);
    return result;
}

void QOS_TLM_FullSampleData(uint32_t hostArg1, uint32_t hostArg2, QosTlmSampleData* sampleData) {
    if (sampleData == nullptr) {
        return;
    }
    sampleData->hostArg1 = hostArg1;
    sampleData->hostArg2 = hostArg2;
}

#define QOS_TLM_ENTRY_POINT(name, familyIndex)                                             \
    uint32_t name(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request) { \
        return QOS_TLM_QueryFunc(hostArg1, hostArg2, request, familyIndex);                \
    }

QOS_TLM_ENTRY_POINT(QOS_TLM_QueryPortEcnStat, QOS_TLM_FAMILY_PORT_ECN)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryPortBufStat, QOS_TLM_FAMILY_PORT_BUF)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryQueueBufStat, QOS_TLM_FAMILY_QUEUE_BUF)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryQueueStat, QOS_TLM_FAMILY_QUEUE)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryQueueDropStat, QOS_TLM_FAMILY_QUEUE_DROP)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryIngPortDropStat, QOS_TLM_FAMILY_ING_PORT_DROP)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryTmBufStat, QOS_TLM_FAMILY_TM_BUF)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryBufIngStat, QOS_TLM_FAMILY_BUF_ING)
QOS_TLM_ENTRY_POINT(QOS_TLM_QueryTmBufMonitorStat, QOS_TLM_FAMILY_BUF_MONITOR)
