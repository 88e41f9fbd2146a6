#include "bench/memory.h"

#include <cjson/cJSON.h>
#include <fmt/core.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>

#include "bench/host.h"
#include "bench/tables.h"
#include "nivex_qos/paths.h"
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

// Nothing is kept from calls before.
void forgetSentKeys() {
    for (uint32_t family = 0; family < QOS_TLM_FAMILY_NUM; ++family) {
        PLUGIN(QOS_HashRelease)(family);
    }
    resetPeak();
}

uint64_t peakOf(const Path& path, uint32_t encodeType) {
    forgetSentKeys();
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

constexpr int kTextMax = 31;

// What docs/reliability.md promises.
constexpr Peaks kPromised{425'000, 220'000, 250'000};
constexpr uint64_t kPromisedWithoutSlots = 1'220'000;  // GPB, under batch policy 1

// The most of a call over chips whose slot is no number, which no batch limit counts: as many as fill the payload.
uint64_t peakWithoutSlots(const Path& path) {
    constexpr size_t kChips = 4000;
    const QosTlmQueryParam request{};
    uint64_t most = 0;
    expectsMessages = true;  // about each slot
    for (size_t length = 0; length <= kTextMax; ++length) {
        for (const uint64_t number : {uint64_t{0}, UINT64_MAX}) {
            tables.tm_chip_buf_stat.assign(kChips,
                                           {std::string(length, 'x'), number, number, static_cast<uint32_t>(number)});
            forgetSentKeys();
            if (path.call(1, 1, &request) != QOS_TLM_RESULT_DONE || memory.bytes != 0) {
                fail("chips without a slot: a call is not done, or keeps something");
            }
            most = std::max(most, memory.peakBytes);
        }
    }
    expectsMessages = false;
    return most;
}

}  // namespace

nlohmann::ordered_json memoryFigures() {
    constexpr size_t kRows = 1000;
#define BENCH_PATH(NAME, list, entryPoint, queryFromDb, batchLimit) {list, PLUGIN(entryPoint)},
    const Path paths[QOS_TLM_FAMILY_NUM] = {QOS_TLM_PATHS(BENCH_PATH)};
#undef BENCH_PATH
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
    fmt::print("\n| {:31} | {:>8} | {:>12} | {:>13} | {:>13} | {:>12} | {:>13} | {:>15} |\n", "Bytes of one call",
               "GPB", "JSON, host's", "JSON, cJSON's", "at most: GPB", "JSON, host's", "JSON, cJSON's",
               "kept per record");
    fmt::print("|{:-<33}|{:->9}:|{:->13}:|{:->14}:|{:->14}:|{:->13}:|{:->14}:|{:->16}:|\n", "", "", "", "", "", "", "",
               "");
    for (size_t i = 0; i < QOS_TLM_FAMILY_NUM; ++i) {
        const Peaks peaks = peaksOf(paths[i]);
        const double kept = static_cast<double>(memory.bytes) / kRows;
        raise(most[i], peaks);
        fmt::print("| {:31} | {:>8} | {:>12} | {:>13} | {:>13} | {:>12} | {:>13} | {:>15.1f} |\n", paths[i].name,
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
    const uint64_t withoutSlots = peakWithoutSlots(paths[QOS_TLM_FAMILY_TM_BUF]);
    fmt::print("\nChips without a slot, GPB: at most {} bytes of one call\n", withoutSlots);
    figures.push_back({{"path", "chips without a slot"}, {"most_gpb", withoutSlots}});
    if (withoutSlots > kPromisedWithoutSlots) {
        fail("chips without a slot: a call holds more than docs/reliability.md promises");
    }
    cJSON_InitHooks(nullptr);
    PLUGIN(QOS_TLM_SetBatchPolicy)(QOS_TLM_BATCH_BY_COUNT);
    return figures;
}

}  // namespace bench
