/*
 * A small complete host: offers the plug-in what it needs of its process, starts it, samples paths and tells what came.
 *
 * Built against the installed package nivex-qos-plugin, and run:
 *
 *   cc -std=c11 -rdynamic host.c -o host $(pkg-config --cflags --libs nivex-qos-plugin)
 *   NIVEX_QOS_DB=q.db ./host "$(pkg-config --variable=plugin nivex-qos-plugin)" json queue-statistics
 *
 * -rdynamic lets the plug-in find the platform's functions below in this program. The libdb_qos.so beside the plug-in,
 * of the package nivex-qos-host, reads the SQLite file that NIVEX_QOS_DB names; without that package, or instead, one
 * is taken from LD_LIBRARY_PATH (see db_qos.c).
 *
 * Exit code: 0 when every pass arrived whole, else 1.
 */
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "nivex_qos/plugin.h"
#include "platform/bounded.h"
#include "platform/device_db.h"
#include "platform/host_framework.h"
#include "platform/log.h"
#include "platform/patch_service.h"
#include "platform/system_time.h"

enum { MODULE_ID = 7, SUBSCRIPTION = 1 };

/* --- The host framework: what the plug-in registers and uploads --- */

typedef struct Path {
    char alias[QOS_TLM_ALIAS_SIZE];
    QosTlmQueryFunc query;
} Path;

static Path paths[QOS_TLM_FAMILY_NUM];
static unsigned pathCount;
static QosTlmSampleData* batch; /* what the call under way has uploaded, or null */
static unsigned messages;       /* that it has logged */

/* The record is gone when this returns; the xpath, which stays, is the path's long name. */
static uint32_t registerPath(uint32_t moduleId, const char* xpath, const QosTlmXpathRegInfo* info) {
    if (moduleId != MODULE_ID || pathCount == QOS_TLM_FAMILY_NUM || xpath == NULL) {
        return 1;
    }
    memcpy(paths[pathCount].alias, info->xpathAlias, sizeof paths[pathCount].alias);
    paths[pathCount++].query = info->queryFunc;
    return 0;
}

/* The buffer is gone when this returns, so it is copied. What is refused here does not come again in this pass. */
static uint32_t takeBatch(uint32_t moduleId, const QosTlmSampleData* sample) {
    batch = moduleId == MODULE_ID ? malloc(sizeof *batch) : NULL;
    if (batch == NULL) {
        return 1;
    }
    *batch = *sample;
    return 0;
}

static const QosTlmFrmVtbl functions = {.sampleXpathRegister = registerPath, .sampleDataUpload = takeBatch};

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

/* --- The rest of the platform --- */

int32_t IM_Agent_ReportLogById(uint32_t level, uint32_t logId, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fprintf(stderr, "log %u %u: ", (unsigned)level, (unsigned)logId);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
    ++messages;
    return 0;
}

/* Nobody patches this process: the hook is never called. */
uint32_t TARN_PAT_C2HRegisterHook(TarnPatC2HHook hook) {
    return hook == NULL ? 1 : 0;
}

uint32_t TARN_PAT_RestoreForDLL(void* handle) {
    return handle == NULL ? 1 : 0;
}

static void split(uint64_t value, uint32_t* high, uint32_t* low) {
    *high = (uint32_t)(value >> 32);
    *low = (uint32_t)value;
}

static uint64_t millisecondsOf(const KatSystime* time) {
    return (uint64_t)time->opaque[0] << 32 | time->opaque[1];
}

void KAT_SystimeGet(KatSystime* now) {
    struct timespec time = {0};
    timespec_get(&time, TIME_UTC);
    split((uint64_t)time.tv_sec * 1000 + (uint64_t)time.tv_nsec / 1000000, &now->opaque[0], &now->opaque[1]);
}

void KAT_SystimeMsSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    split(millisecondsOf(time), high, low);
}

void KAT_SystimeSecSince1970(const KatSystime* time, uint32_t* high, uint32_t* low) {
    split(millisecondsOf(time) / 1000, high, low);
}

/* UTC, as the count of seconds is: a time in a sample then reads as the clock does. */
uint32_t KAT_SystimeSec2Time(uint64_t seconds, KatCalendar* calendar) {
    const time_t time = (time_t)seconds;
    const struct tm* utc = gmtime(&time);
    if (utc == NULL || utc->tm_year > UINT16_MAX - 1900) {
        return 1;
    }
    *calendar = (KatCalendar){.year = (uint16_t)(utc->tm_year + 1900),
                              .month = (uint8_t)(utc->tm_mon + 1),
                              .day = (uint8_t)utc->tm_mday,
                              .hour = (uint8_t)utc->tm_hour,
                              .minute = (uint8_t)utc->tm_min,
                              .second = (uint8_t)utc->tm_sec};
    return 0;
}

/* The global number of slot "first/second", on a device of at most 64 places each. */
uint32_t DEVM_DB_GetGlobalSlotIdByLocalSlotId(uint32_t* globalSlot, uint32_t second, uint32_t first) {
    *globalSlot = first * 64 + second;
    return first < 64 && second < 64 ? 0 : 1;
}

int strcpy_s(char* dest, size_t size, const char* source) {
    return source == NULL ? 1 : memcpy_s(dest, size, source, strlen(source) + 1);
}

int memcpy_s(void* dest, size_t size, const void* source, size_t count) {
    if (dest == NULL || source == NULL || count > size) {
        return 1;
    }
    memcpy(dest, source, count);
    return 0;
}

int memset_s(void* dest, size_t size, int byte, size_t count) {
    if (dest == NULL || count > size) {
        return 1;
    }
    memset(dest, byte, count);
    return 0;
}

int sprintf_s(char* dest, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(dest, size, format, arguments);
    va_end(arguments);
    return length >= 0 && (size_t)length < size ? length : -1;
}

int sscanf_s(const char* text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int items = vsscanf(text, format, arguments);
    va_end(arguments);
    return items;
}

int vsnprintf_truncated_s(char* dest, size_t size, const char* format, va_list arguments) {
    const int length = vsnprintf(dest, size, format, arguments);
    return length >= 0 && (size_t)length >= size ? (int)size - 1 : length;
}

/* --- Starting and sampling --- */

typedef uint32_t (*StartFunc)(uint32_t); /* the type of both functions that a host calls by name */

/* A function of the plug-in; null, with a message, when it has none of that name. */
static StartFunc find(void* plugin, const char* name) {
    void* function = dlsym(plugin, name);
    if (function == NULL) {
        fprintf(stderr, "host: this is not the plug-in: it has no %s\n", name);
    }
    return (StartFunc)(uintptr_t)function;
}

/* 0 when the plug-in runs. It is never unloaded. */
static int start(const char* file) {
    void* plugin = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "host: %s\n", dlerror());
        return 1;
    }
    const StartFunc init = find(plugin, "QOS_TLM_InitPlugin");
    const StartFunc setBatchPolicy = find(plugin, "QOS_TLM_SetBatchPolicy");
    if (init == NULL || setBatchPolicy == NULL) {
        return 1;
    }
    const uint32_t result = init(MODULE_ID);
    if (result != 0 || pathCount != QOS_TLM_FAMILY_NUM) { /* registrations that fail are only logged */
        fprintf(stderr, "host: the plug-in does not start: result %u, %u paths\n", (unsigned)result, pathCount);
        return 1;
    }
    return setBatchPolicy(QOS_TLM_BATCH_BY_PAYLOAD) == 0 ? 0 : 1; /* no record is lost to the payload's size */
}

/* Samples a path until its pass ends; 0 when all of it arrived. */
static int samplePass(const Path* path, const QosTlmQueryParam* request) {
    for (uint32_t number = 1;; ++number) {
        messages = 0;
        const uint32_t result = path->query(SUBSCRIPTION, number, request);
        const int arrived = batch != NULL;
        if (arrived) { /* here a host would hand it on */
            printf("%s %u: %u records, %u bytes\n", path->alias, (unsigned)batch->hostArg2,
                   (unsigned)batch->recordCount, (unsigned)batch->dataLen);
            free(batch);
            batch = NULL;
        }
        if (result == QOS_TLM_RESULT_MORE) {
            continue; /* with the same request, at once or at the next tick */
        }
        if (result == QOS_TLM_RESULT_DONE && (arrived || messages == 0)) {
            return 0;
        }
        /* The call failed (2), or its batch could not be made (0, and the log says why). A host that samples all day
           calls again at its next tick: the pass then goes on without what was lost, or begins anew. */
        fprintf(stderr, "host: %s %u: no batch, result %u\n", path->alias, (unsigned)number, (unsigned)result);
        return 1;
    }
}

int main(int count, char** arguments) {
    const int json = count > 2 && strcmp(arguments[2], "json") == 0;
    if (count < 3 || count > 4 || (!json && strcmp(arguments[2], "gpb") != 0)) {
        fprintf(stderr, "usage: host PLUGIN gpb|json [PATH]     every path when none is named\n");
        return 1;
    }
    if (start(arguments[1]) != 0) {
        return 1;
    }
    QosTlmQueryParam request = {0}; /* every record, whole */
    request.encodeType = json ? QOS_TLM_ENCODE_JSON : QOS_TLM_ENCODE_GPB;
    const char* wanted = count == 4 ? arguments[3] : NULL;
    unsigned sampled = 0;
    int failed = 0;
    for (unsigned i = 0; i < pathCount; ++i) {
        if (wanted == NULL || strcmp(wanted, paths[i].alias) == 0) {
            ++sampled;
            failed |= samplePass(&paths[i], &request);
        }
    }
    if (sampled == 0) {
        fprintf(stderr, "host: there is no path %s\n", wanted);
        return 1;
    }
    return failed;
}
