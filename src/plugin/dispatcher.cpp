#include "nivex_qos/log.h"
#include "nivex_qos/paths.h"
#include "nivex_qos/plugin.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"

namespace {

uint32_t fail(const char* message) {
    QOS_TLM_DiagErr("%s", message);
    return QOS_TLM_RESULT_FAILED;
}

uint32_t upload(uint32_t hostArg1, uint32_t hostArg2, QosTlmSampleData* sampleData) {
    sampleData->hostArg1 = hostArg1;
    sampleData->hostArg2 = hostArg2;
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

#define ENTRY_POINT(NAME, list, entryPoint, queryFromDb, batchLimit)                             \
    uint32_t entryPoint(uint32_t hostArg1, uint32_t hostArg2, const QosTlmQueryParam* request) { \
        return QOS_TLM_QueryFunc(hostArg1, hostArg2, request, QOS_TLM_FAMILY_##NAME);            \
    }
QOS_TLM_PATHS(ENTRY_POINT)
