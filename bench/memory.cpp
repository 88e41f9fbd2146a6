#include "bench/memory.h"

#include <cjson/cJSON.h>
#include <fmt/core.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>

#include "bench/host.h"
#include "bench/tables.h"
#include "nivex_qos/sample.h"
#include "nivex_qos/tracking.h"

namespace bench {

namespace {

// What cJSON takes from the C library.
uint64_t cjsonBytes = 0;
uint64_t cjsonPeak = 0;

void* countedAlloc(size_t size) {
    void* block = std::malloc(size);
    cjsonBytes += malloc_usable_size(block);
    cjsonPeak = std::max(cjsonPeak, cjsonBytes);
    return block;
}

void countedFree(void* block) {
    cjsonBytes -= malloc_usable_size(block);
    std::free(block);
}

struct Path {
    const char* name;
    uint32_t (*call)(uint32_t, uint32_t, const QosTlmQueryParam*);
};

// The first call of a pass over more records than a batch takes.
void firstCall(const Path& path, uint32_t encodeType) {
    QosTlmQueryParam request{};
    request.encodeType = encodeType;
    if (path.call(1, 1, &request) != QOS_TLM_RESULT_MORE) {
        fail(fmt::format("{}: not a full batch", path.name));
    }
}

void finishPass(const Path& path) {
    QosTlmQueryParam request{};
    while (path.call(1, 1, &request) == QOS_TLM_RESULT_MORE) {
    }
}

uint64_t peakOf(const Path& path, uint32_t encodeType) {
    for (uint32_t family = 0; family < QOS_TLM_FAMILY_NUM; ++family) {
        PLUGIN(QOS_HashRelease)(family);
    }
    resetPeak();
    cjsonPeak = 0;
    firstCall(path, encodeType);
    const uint64_t peak = memory.peakBytes;
    finishPass(path);
    return peak;
}

}  // namespace

nlohmann::ordered_json memoryFigures() {
    constexpr size_t kRows = 1000;
    const Path paths[QOS_TLM_FAMILY_NUM] = {
        {"port ECN", PLUGIN(QOS_TLM_QueryPortEcnStat)},
        {"port buffer usage", PLUGIN(QOS_TLM_QueryPortBufStat)},
        {"queue buffer usage", PLUGIN(QOS_TLM_QueryQueueBufStat)},
        {"queue statistics", PLUGIN(QOS_TLM_QueryQueueStat)},
        {"queue drops", PLUGIN(QOS_TLM_QueryQueueDropStat)},
        {"ingress port drops", PLUGIN(QOS_TLM_QueryIngPortDropStat)},
        {"chip buffer usage", PLUGIN(QOS_TLM_QueryTmBufStat)},
        {"ingress buffer usage", PLUGIN(QOS_TLM_QueryBufIngStat)},
        {"burst results", PLUGIN(QOS_TLM_QueryTmBufMonitorStat)},
    };
    fillEveryTable(kRows);
    PLUGIN(QOS_TLM_SetBatchPolicy)(QOS_TLM_BATCH_BY_PAYLOAD);
    cJSON_Hooks hooks{countedAlloc, countedFree};
    cJSON_InitHooks(&hooks);

    nlohmann::ordered_json figures = nlohmann::ordered_json::array();
    fmt::print("\n| {:20} | {:>14} | {:>15} | {:>15} | {:>15} |\n", "Bytes of one call", "GPB", "JSON, host's",
               "JSON, cJSON's", "kept per record");
    fmt::print("|{:-<22}|{:->15}:|{:->16}:|{:->16}:|{:->16}:|\n", "", "", "", "", "");
    for (const Path& path : paths) {
        const uint64_t gpb = peakOf(path, QOS_TLM_ENCODE_GPB);
        const uint64_t json = peakOf(path, QOS_TLM_ENCODE_JSON);
        const double kept = static_cast<double>(memory.bytes) / kRows;
        fmt::print("| {:20} | {:>14} | {:>15} | {:>15} | {:>15.1f} |\n", path.name, gpb, json, cjsonPeak, kept);
        figures.push_back(
            {{"path", path.name}, {"gpb", gpb}, {"json", json}, {"cjson", cjsonPeak}, {"kept_per_record", kept}});
    }
    cJSON_InitHooks(nullptr);
    PLUGIN(QOS_TLM_SetBatchPolicy)(QOS_TLM_BATCH_BY_COUNT);
    return figures;
}

}  // namespace bench
