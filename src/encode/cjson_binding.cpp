#include <dlfcn.h>

#include "nivex_qos/cjson.h"
#include "nivex_qos/log.h"
#include "platform/patch_service.h"

void* g_qosTlmCjsonHandle = nullptr;
QosTlmCjsonFuncTable g_qosTlmCjsonFunc = {};

namespace {

constexpr char kLibraryName[256] = "libcjson.so";

// FUNCTION(slot, symbol, loader), in the order in which start-up looks them up.
#define CJSON_FUNCTIONS(FUNCTION)                                                  \
    FUNCTION(createNumber, "cJSON_CreateNumber", QOS_TLM_InitCjsonCreateNumber)    \
    FUNCTION(createString, "cJSON_CreateString", QOS_TLM_InitCjsonCreateString)    \
    FUNCTION(createBool, "cJSON_CreateBool", QOS_TLM_InitCjsonCreateBool)          \
    FUNCTION(createObject, "cJSON_CreateObject", QOS_TLM_InitCjsonCreateObject)    \
    FUNCTION(createArray, "cJSON_CreateArray", QOS_TLM_InitCjsonCreateArray)       \
    FUNCTION(addItemToObj, "cJSON_AddItemToObject", QOS_TLM_InitCjsonAddItemToObj) \
    FUNCTION(addItemToArr, "cJSON_AddItemToArray", QOS_TLM_InitCjsonAddItemToArr)  \
    FUNCTION(printUnfmt, "cJSON_PrintUnformatted", QOS_TLM_InitCjsonPrintUnfmt)    \
    FUNCTION(cjsonFree, "cJSON_free", QOS_TLM_InitCjsonFree)                       \
    FUNCTION(nodeFree, "cJSON_Delete", QOS_TLM_InitCjsonNodeFree)

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
    uint32_t missing = 0;
#define RESOLVE(slot, symbol, loader) missing |= resolve(g_qosTlmCjsonFunc.slot, symbol);
    CJSON_FUNCTIONS(RESOLVE)
#undef RESOLVE
    return missing == 0 ? 0 : closeLibrary();
}

#define DEFINE_LOADER(slot, symbol, loader)             \
    uint32_t loader() {                                 \
        return resolve(g_qosTlmCjsonFunc.slot, symbol); \
    }
CJSON_FUNCTIONS(DEFINE_LOADER)
#undef DEFINE_LOADER

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
