/*
 * A host of the smallest kind, built from what the package installs: starts the plug-in named by its argument, samples
 * queue-statistics as JSON to the end of the table and prints what was registered and what arrived.
 */
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "nivex_qos/plugin.h"
#include "nivex_qos/sample.h"

static QosTlmQueryFunc sampleQueues;
static unsigned paths;
static unsigned records;

static uint32_t registerPath(uint32_t moduleId, const char* xpath, const QosTlmXpathRegInfo* info) {
    if (strcmp(info->xpathAlias, "queue-statistics") == 0) {
        sampleQueues = info->queryFunc;
    }
    ++paths;
    return moduleId == 7 && strstr(xpath, info->xpathAlias) != NULL ? 0 : 1;
}

static uint32_t takeBatch(uint32_t moduleId, const QosTlmSampleData* sample) {
    records += sample->recordCount;
    return moduleId == 7 && sample->data[0] == '{' ? 0 : 1;
}

static const QosTlmFrmVtbl functions = {{NULL}, registerPath, takeBatch};

/* What the plug-in expects of its process. */
uint32_t COMP_GetVTable(uint32_t firstId, uint32_t secondId, const QosTlmFrmVtbl** table) {
    *table = &functions;
    return firstId == 1000 && secondId == 1000 ? 0 : 1;
}
void* NIVEX_AllocBuff(size_t size) {
    return malloc(size);
}
void NIVEX_FreeBuff(void* block) {
    free(block);
}
int32_t IM_Agent_ReportLogById(uint32_t level, uint32_t logId, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fprintf(stderr, "%u %u ", (unsigned)level, (unsigned)logId);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
    return 0;
}
uint32_t TARN_PAT_C2HRegisterHook(void* hook) {
    return hook == NULL;
}
uint32_t TARN_PAT_RestoreForDLL(void* handle) {
    return handle == NULL;
}
void KAT_SystimeGet(uint32_t now[3]) {
    now[0] = (uint32_t)time(NULL);
}
void KAT_SystimeSecSince1970(const uint32_t* now, uint32_t* high, uint32_t* low) {
    *high = 0;
    *low = now[0];
}
void KAT_SystimeMsSince1970(const uint32_t* now, uint32_t* high, uint32_t* low) {
    const uint64_t milliseconds = now[0] * UINT64_C(1000);
    *high = (uint32_t)(milliseconds >> 32);
    *low = (uint32_t)milliseconds;
}
uint32_t KAT_SystimeSec2Time(uint64_t seconds, void* calendar) {
    return seconds == 0 && calendar == NULL; /* queue statistics have no calendar times */
}
uint32_t DEVM_DB_GetGlobalSlotIdByLocalSlotId(uint32_t* globalSlot, uint32_t second, uint32_t first) {
    *globalSlot = first * 64 + second;
    return 0;
}
int strcpy_s(char* dest, size_t size, const char* source) {
    return (size_t)snprintf(dest, size, "%s", source) >= size;
}
int memcpy_s(void* dest, size_t size, const void* source, size_t count) {
    return count > size || memcpy(dest, source, count) == NULL;
}
int memset_s(void* dest, size_t size, int byte, size_t count) {
    return count > size || memset(dest, byte, count) == NULL;
}
int sprintf_s(char* dest, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(dest, size, format, arguments);
    va_end(arguments);
    return length;
}
int sscanf_s(const char* text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int items = vsscanf(text, format, arguments);
    va_end(arguments);
    return items;
}
int vsnprintf_truncated_s(char* dest, size_t size, const char* format, va_list arguments) {
    return vsnprintf(dest, size, format, arguments);
}

int main(int count, char** arguments) {
    void* plugin = count == 2 ? dlopen(arguments[1], RTLD_NOW) : NULL;
    if (plugin == NULL) {
        fprintf(stderr, "%s\n", count == 2 ? dlerror() : "usage: host PLUGIN");
        return 1;
    }
    uint32_t (*init)(uint32_t);
    *(void**)&init = dlsym(plugin, "QOS_TLM_InitPlugin");
    if (init == NULL || init(7) != 0 || sampleQueues == NULL) {
        fprintf(stderr, "the plug-in does not start\n");
        return 1;
    }
    QosTlmQueryParam request;
    memset(&request, 0, sizeof request);
    request.encodeType = QOS_TLM_ENCODE_JSON;
    uint32_t result = QOS_TLM_RESULT_MORE;
    while (result == QOS_TLM_RESULT_MORE) {
        result = sampleQueues(0, 0, &request);
    }
    printf("paths %u, records %u, result %u\n", paths, records, (unsigned)result);
    return 0;
}
