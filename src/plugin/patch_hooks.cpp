#include "nivex_qos/patch.h"

#include <cstring>

#include "nivex_qos/log.h"

namespace {

constexpr char kOwnFileName[] = "libnivex_qos_plugin.so";

const char* patchedFile(const void* description) {
    return static_cast<const char*>(description) + QOS_PATCH_FILE_NAME_OFFSET;
}

bool isOwnPatch(const void* description) {
    return strcmp(patchedFile(description), kOwnFileName) == 0;
}

}  // namespace

uint32_t QOS_Plugin_AsynPatchC2hHookfunc(int32_t operation, uint64_t context, const void* description,
                                         uint32_t* notOurs) {
    if (!isOwnPatch(description)) {
        *notOurs = 1;
        return 0;
    }
    uint32_t result = 0;
    switch (operation) {
        case QOS_PATCH_ACTIVATE:
            QOS_Plugin_AsynPatchC2hActiveFunc(context);
            break;
        case QOS_PATCH_DEACTIVATE:
            QOS_Plugin_AsynPatchC2hDeactiveFunc(context);
            break;
        default:
            result = 1;
    }
    *notOurs = 0;
    return result;
}

void QOS_Plugin_AsynPatchC2hActiveFunc(uint64_t) {}

void QOS_Plugin_AsynPatchC2hDeactiveFunc(uint64_t) {}

uint32_t libnivex_qos_plugin_PAT_C2HSyncHookFunc(uint32_t operation, const void* description, uint32_t* handled) {
    *handled = 0;
    if (!isOwnPatch(description)) {
        return 0;
    }
    uint32_t result = 0;
    switch (operation) {
        case QOS_PATCH_ACTIVATE:
            libnivex_qos_plugin_ResPatchC2hActivefunc();
            break;
        case QOS_PATCH_DEACTIVATE:
            libnivex_qos_plugin_ResPatchC2hDeactivefunc();
            break;
        default:
            QOS_TLM_DiagErr("PatC2hProc, %s c2h active or deactive oper failed, operCode %d", patchedFile(description),
                            static_cast<int>(operation));
            result = 1;
    }
    *handled = 1;
    return result;
}

void libnivex_qos_plugin_ResPatchC2hActivefunc() {}

void libnivex_qos_plugin_ResPatchC2hDeactivefunc() {}
