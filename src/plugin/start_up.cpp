#include "nivex_qos/cjson.h"
#include "nivex_qos/log.h"
#include "nivex_qos/patch.h"
#include "nivex_qos/plugin.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "platform/patch_service.h"

namespace {

constexpr uint32_t kVtableId = 1000;  // passed as both identifiers of COMP_GetVTable

void registerPatchHook() {
    const uint32_t registered = TARN_PAT_C2HRegisterHook(QOS_Plugin_AsynPatchC2hHookfunc);
    if (registered != 0) {
        QOS_TLM_DiagErr("qos plugin c2h patch init reg hook fail, ret = %u.", registered);
    }
}

}  // namespace

uint32_t g_qosTlmModuleId = 0;
const QosTlmFrmVtbl* g_qosTlmFrmVtbl = nullptr;

uint32_t QOS_TLM_InitPlugin(uint32_t moduleId) {
    const uint32_t loaded = QOS_TLM_InitCjson();
    if (loaded != 0) {
        QOS_TLM_DiagErr("[Tlm InitPlugin] init cjson failed, ret=%u.", loaded);
        return loaded;
    }
    g_qosTlmModuleId = moduleId;
    const uint32_t obtained = COMP_GetVTable(kVtableId, kVtableId, &g_qosTlmFrmVtbl);
    if (obtained != 0) {
        QOS_TLM_DiagErr("[Tlm InitPlugin] get vtable failed, ret=%u.", obtained);
        return obtained;
    }
    QOS_TLM_RegisterXpath();
    registerPatchHook();
    return 0;
}

void QOS_TLM_SetModuleId(uint32_t moduleId) {
    g_qosTlmModuleId = moduleId;
}

void QOS_TLM_RegisterXpath() {
    if (g_qosTlmFrmVtbl == nullptr || g_qosTlmFrmVtbl->sampleXpathRegister == nullptr) {
        QOS_TLM_DiagErr("[Tlm RegisterXpath] g_qosTlmFrmVtbl or sampleXpathRegister is null.");
        return;
    }
    QosTlmXpathRegInfo info = {};
    info.regParam1 = 100;
    info.regParam2 = 1000;
    for (const QosTlmTaskMapEntry& path : g_qosTlmTaskMap) {
        info.queryFunc = path.queryFunc;
        info.stopFunc = path.stopFunc;
        const int copied = strcpy_s(info.xpathAlias, sizeof info.xpathAlias, path.xpathAlias);
        if (copied != 0) {
            QOS_TLM_DiagErr("[Tlm RegisterXpath] strcpy failed, xpathAlias=%s, ret=%d.", path.xpathAlias, copied);
            return;
        }
        const uint32_t registered = g_qosTlmFrmVtbl->sampleXpathRegister(g_qosTlmModuleId, path.xpath, &info);
        if (registered != 0) {
            QOS_TLM_DiagErr("[Tlm RegisterXpath] register sample xpath failed, xpathAlias=%s, ret=%u.", path.xpathAlias,
                            registered);
            return;
        }
    }
}

uint32_t QOS_TLM_StopTaskFunc() {
    return 0;
}

void QOS_Plugin_C2HPatchInit() {
    registerPatchHook();
}
