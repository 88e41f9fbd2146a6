#include <dlfcn.h>

#include "nivex_qos/cjson.h"
#include "nivex_qos/log.h"
#include "platform/patch_service.h"

void* g_qosTlmCjsonHandle = nullptr;
QosTlmCjsonFuncTable g_qosTlmCjsonFunc = {};

namespace {

constexpr char kLibraryName[256] = "libcjson.so";

// Looks a symbol up in the loaded library; a missing one leaves its slot null.
template <class Function>
uint32_t resolve(Function*& slot, const char* symbol) {
    slot = reinterpret_cast<Function*>(dlsym(g_qosTlmCjsonHandle, symbol));
    if (slot != nullptr) {
        return 0;
    }
    QOS_TLM_DiagErr("[TLM init cjson] no %s.", symbol);
    return 1;
}

uint32_t closeLibrary() {
    dlclose(g_qosTlmCjsonHandle);
    g_qosTlmCjsonHandle = nullptr;
    return 1;
}

}  // namespace

uint32_t QOS_TLM_InitCjson() {
    g_qosTlmCjsonHandle = dlopen(kLibraryName, RTLD_NOW | RTLD_GLOBAL);
    if (g_qosTlmCjsonHandle == nullptr) {
        QOS_TLM_DiagErr("[TLM init cjson] no cjson so.");
        return 1;
    }
    const uint32_t restored = TARN_PAT_RestoreForDLL(g_qosTlmCjsonHandle);
    if (restored != 0) {
        QOS_TLM_DiagErr("[TLM init cjson] restore for dll failed, ret=%u.", restored);
        return closeLibrary();
    }
    // All ten are looked up even after one is missing, so that one start-up names every missing symbol.
    uint32_t missing = resolve(g_qosTlmCjsonFunc.createNumber, "cJSON_CreateNumber");
    missing |= resolve(g_qosTlmCjsonFunc.createString, "cJSON_CreateString");
    missing |= resolve(g_qosTlmCjsonFunc.createBool, "cJSON_CreateBool");
    missing |= resolve(g_qosTlmCjsonFunc.createObject, "cJSON_CreateObject");
    missing |= resolve(g_qosTlmCjsonFunc.createArray, "cJSON_CreateArray");
    missing |= resolve(g_qosTlmCjsonFunc.addItemToObj, "cJSON_AddItemToObject");
    missing |= resolve(g_qosTlmCjsonFunc.addItemToArr, "cJSON_AddItemToArray");
    missing |= resolve(g_qosTlmCjsonFunc.printUnfmt, "cJSON_PrintUnformatted");
    missing |= resolve(g_qosTlmCjsonFunc.cjsonFree, "cJSON_free");
    missing |= resolve(g_qosTlmCjsonFunc.nodeFree, "cJSON_Delete");
    return missing == 0 ? 0 : closeLibrary();
}

uint32_t QOS_TLM_InitCjsonCreateNumber() {
    return resolve(g_qosTlmCjsonFunc.createNumber, "cJSON_CreateNumber");
}
uint32_t QOS_TLM_InitCjsonCreateString() {
    return resolve(g_qosTlmCjsonFunc.createString, "cJSON_CreateString");
}
uint32_t QOS_TLM_InitCjsonCreateBool() {
    return resolve(g_qosTlmCjsonFunc.createBool, "cJSON_CreateBool");
}
uint32_t QOS_TLM_InitCjsonCreateObject() {
    return resolve(g_qosTlmCjsonFunc.createObject, "cJSON_CreateObject");
}
uint32_t QOS_TLM_InitCjsonCreateArray() {
    return resolve(g_qosTlmCjsonFunc.createArray, "cJSON_CreateArray");
}
uint32_t QOS_TLM_InitCjsonAddItemToObj() {
    return resolve(g_qosTlmCjsonFunc.addItemToObj, "cJSON_AddItemToObject");
}
uint32_t QOS_TLM_InitCjsonAddItemToArr() {
    return resolve(g_qosTlmCjsonFunc.addItemToArr, "cJSON_AddItemToArray");
}
uint32_t QOS_TLM_InitCjsonFree() {
    return resolve(g_qosTlmCjsonFunc.cjsonFree, "cJSON_free");
}
uint32_t QOS_TLM_InitCjsonNodeFree() {
    return resolve(g_qosTlmCjsonFunc.nodeFree, "cJSON_Delete");
}
uint32_t QOS_TLM_InitCjsonPrintUnfmt() {
    return resolve(g_qosTlmCjsonFunc.printUnfmt, "cJSON_PrintUnformatted");
}

cJSON* QOS_TLM_CreateCjsonNumber(double number) {
    return g_qosTlmCjsonFunc.createNumber(number);
}

cJSON* QOS_TLM_CreateCjsonString(const char* text) {
    if (text == nullptr) {
        QOS_TLM_DiagErr("[TLM CreateCjsonString] str is null.");
        return nullptr;
    }
    return g_qosTlmCjsonFunc.createString(text);
}

cJSON* QOS_TLM_CreateCjsonBool(int flag) {
    return g_qosTlmCjsonFunc.createBool(flag);
}

cJSON* QOS_TLM_CreateCjsonObject() {
    return g_qosTlmCjsonFunc.createObject();
}

cJSON* QOS_TLM_CreateCjsonArray() {
    return g_qosTlmCjsonFunc.createArray();
}

void QOS_TLM_AddCjsonItemToObj(cJSON* object, const char* name, cJSON* item) {
    if (object == nullptr || name == nullptr || item == nullptr) {
        QOS_TLM_DiagErr("[TLM AddCjsonItemToObj] para is null.");
        return;
    }
    g_qosTlmCjsonFunc.addItemToObj(object, name, item);
}

void QOS_TLM_AddCjsonItemToArr(cJSON* array, cJSON* item) {
    if (array == nullptr || item == nullptr) {
        QOS_TLM_DiagErr("[TLM AddCjsonItemToArr] para is null.");
        return;
    }
    g_qosTlmCjsonFunc.addItemToArr(array, item);
}

char* QOS_TLM_PrtUnfmtCjson(const cJSON* item) {
    if (item == nullptr) {
        QOS_TLM_DiagErr("[TLM PrtUnfmtCjson] item is null.");
        return nullptr;
    }
    return g_qosTlmCjsonFunc.printUnfmt(item);
}

void QOS_TLM_FreeCjson(char* text) {
    if (text == nullptr) {
        QOS_TLM_DiagErr("[TLM FreeCjson] item is null.");
        return;
    }
    g_qosTlmCjsonFunc.cjsonFree(text);
}

void QOS_TLM_FreeCjsonNode(cJSON* item) {
    if (item == nullptr) {
        QOS_TLM_DiagErr("[TLM FreeCjsonNode] obj is null.");
        return;
    }
    g_qosTlmCjsonFunc.nodeFree(item);
}
