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

// Bytes at the peak of a call.
struct Peaks {
    uint64_t gpb;
    uint64_t json;   // of the host's allocator
    uint64_t cjson;  // of the C library
};

Peaks peaksOf(const Path& path) {
    Peaks peaks{peakOf(path, QOS_TLM_ENCODE_GPB), peakOf(path, QOS_TLM_ENCODE_JSON), 0};
    peaks.cjson = cjsonPeak;
    return peaks;
}

void raise(Peaks& most, const Peaks& seen) {
    most = {std::max(most.gpb, seen.gpb), std::max(most.json, seen.json), std::max(most.cjson, seen.cjson)};
}

// What docs/reliability.md promises.
constexpr Peaks kPromised{425'000, 220'000, 250'000};

}  // namespace

nlohmann::ordered_json memoryFigures() {
    constexpr size_t kRows = 1000;
    constexpr int kTextMax = 31;
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
    PLUGIN(QOS_TLM_SetBatchPolicy)(QOS_TLM_BATCH_BY_PAYLOAD);
    cJSON_Hooks hooks{countedAlloc, countedFree};
    cJSON_InitHooks(&hooks);

    Peaks most[QOS_TLM_FAMILY_NUM] = {};
    // A full batch holds the most with the texts that just let the batch limit fit the payload, which each family has
    // at another length.
    for (int textLength = 1; textLength <= kTextMax; ++textLength) {
        for (const Magnitude numbers : {Magnitude::smallest, Magnitude::largest}) {
            fillEveryTable(kRows, numbers, textLength);
            for (size_t i = 0; i < QOS_TLM_FAMILY_NUM; ++i) {
                raise(most[i], peaksOf(paths[i]));
            }
        }
    }
    fillEveryTable(kRows);
    nlohmann::ordered_json figures = nlohmann::ordered_json::array();
    fmt::print("\n| {:20} | {:>8} | {:>12} | {:>13} | {:>13} | {:>12} | {:>13} | {:>15} |\n", "Bytes of one call",
               "GPB", "JSON, host's", "JSON, cJSON's", "at most: GPB", "JSON, host's", "JSON, cJSON's",
               "kept per record");
    fmt::print("|{:-<22}|{:->9}:|{:->13}:|{:->14}:|{:->14}:|{:->13}:|{:->14}:|{:->16}:|\n", "", "", "", "", "", "", "",
               "");
    for (size_t i = 0; i < QOS_TLM_FAMILY_NUM; ++i) {
        const Peaks peaks = peaksOf(paths[i]);
        const double kept = static_cast<double>(memory.bytes) / kRows;
        raise(most[i], peaks);
        fmt::print("| {:20} | {:>8} | {:>12} | {:>13} | {:>13} | {:>12} | {:>13} | {:>15.1f} |\n", paths[i].name,
                   peaks.gpb, peaks.json, peaks.cjson, most[i].gpb, most[i].json, most[i].cjson, kept);
        figures.push_back({{"path", paths[i].name},
                           {"gpb", peaks.gpb},
                           {"json", peaks.json},
                           {"cjson", peaks.cjson},
                           {"most_gpb", most[i].gpb},
                           {"most_json", most[i].json},
                           {"most_cjson", most[i].cjson},
                           {"kept_per_record", kept}});
        if (most[i].gpb > kPromised.gpb || most[i].json > kPromised.json || most[i].cjson > kPromised.cjson) {
            fail(fmt::format("{}: a call holds more than docs/reliability.md promises", paths[i].name));
        }
    }
    cJSON_InitHooks(nullptr);
    PLUGIN(QOS_TLM_SetBatchPolicy)(QOS_TLM_BATCH_BY_COUNT);
    return figures;
}

}  // namespace bench
