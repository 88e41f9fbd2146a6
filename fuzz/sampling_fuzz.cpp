// Sampling calls: any request over any rows, with failures anywhere, some calls in a row on any of the nine paths.
#include <cstring>
#include <memory>
#include <set>
#include <stdexcept>

#include "devhost/cli/decode.h"
#include "fuzz/input.h"
#include "fuzz/platform.h"
#include "nivex_qos/plugin.h"

using fuzz::Input;
using fuzz::platform;

namespace {

constexpr const char* kFields[] = {"interface-name", "service-class", "slot-id",      "queue-id",    "packets",
                                   "pass-packets",   "pass-bytes",    "current-used", "total-buffer"};

// The name of a field, or any text; the rest of the place, its NUL included, is as it was.
template <size_t Size>
void putText(Input& input, char (&place)[Size], bool isName) {
    const uint8_t choice = isName ? input.byte() : 0xFF;
    const std::string text = choice < std::size(kFields) ? std::string(kFields[choice]) + '\0'
                                                         : std::string(input.bytes(input.below(Size + 1)));
    memcpy(place, text.data(), text.size());
}

// Alone on the heap, so that any read beside it is seen.
std::unique_ptr<QosTlmQueryParam> readRequest(Input& input) {
    auto request = std::make_unique<QosTlmQueryParam>();
    memset(request.get(), input.below(4) == 0 ? 'x' : 0, sizeof *request);
    const uint8_t flags = input.byte();
    request->encodeType = flags % 16 == 15 ? input.number<uint32_t>() : flags % 2;
    request->suppressRedundant = flags >> 4 & 1;
    request->periodCheck = flags >> 5 & 1;
    request->selfDefPeriod = input.byte();
    request->redundantPeriod = input.byte();
    const uint8_t conditions = input.byte();
    request->conditionNum = conditions < 0xF0 ? conditions % 4 : input.number<uint32_t>();
    for (uint32_t i = 0; i < std::min<uint32_t>(request->conditionNum, QOS_TLM_CONDITION_MAX) && !input.isOver(); ++i) {
        putText(input, request->conditions[i].fieldName, true);
        putText(input, request->conditions[i].value, false);
    }
    const uint8_t thresholds = input.byte();
    request->thresholdNum = thresholds < 0xF0 ? thresholds % 3 : input.number<uint32_t>();
    request->thresholdRelation = thresholds / 3 % 4;
    for (uint32_t i = 0; i < std::min<uint32_t>(request->thresholdNum, QOS_TLM_THRESHOLD_MAX); ++i) {
        putText(input, request->thresholds[i].fieldName, true);
        request->thresholds[i].op = input.below(6);
        request->thresholds[i].value = input.spread();
    }
    return request;
}

void requireDecodes(uint32_t family, uint32_t encodeType) {
    const host::Catalogued* path = host::findInCatalogue(g_qosTlmTaskMap[family].xpathAlias);
    REQUIRE(path != nullptr);
    try {
        const auto decode = encodeType == QOS_TLM_ENCODE_GPB ? host::decodeGpb : host::decodeJson;
        const size_t records = decode(*path, platform.payload).size();
        // A chip whose slot is no number is sent, but does not count.
        REQUIRE(records == platform.recordCount || (family == QOS_TLM_FAMILY_TM_BUF && records > platform.recordCount));
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        std::abort();
    }
}

uint32_t sample(uint32_t family, const QosTlmQueryParam& request) {
    platform.uploads = 0;
    platform.hasFailed = false;
    platform.isAscii = true;
    const uint32_t result = g_qosTlmTaskMap[family].queryFunc(1, 2, &request);
    REQUIRE(result <= QOS_TLM_RESULT_FAILED);
    REQUIRE(result != QOS_TLM_RESULT_FAILED || platform.hasFailed || request.encodeType > QOS_TLM_ENCODE_JSON);
    REQUIRE(platform.objects == 0);
    REQUIRE(platform.blocks == fuzz::sentKeys());
    REQUIRE(platform.uploads <= 1);
    if (platform.uploads == 1) {
        REQUIRE(result != QOS_TLM_RESULT_FAILED);
        REQUIRE(platform.recordCount > 0);
        if (platform.isAscii && !platform.hasFailed) {
            requireDecodes(family, request.encodeType);
        }
    }
    return result;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const uint32_t started = QOS_TLM_InitPlugin(7);
    REQUIRE(started == 0);
    Input input(data, size);
    platform = {};
    const auto request = readRequest(input);
    const QosTlmQueryParam before = *request;

    const uint8_t flags = input.byte();
    REQUIRE(QOS_TLM_SetBatchPolicy(flags % 2) == 0);
    platform.distinctKeys = flags >> 1 & 1;
    platform.rowStep = flags >> 2 & 7;
    const uint8_t rows = input.byte();
    platform.rowCount = rows < 0xFC ? rows % 8 : 140;  // beyond the limit of some paths
    platform.failureCode = 1 + input.byte();
    const auto calls = static_cast<uint8_t>(1 + input.below(platform.rowCount < 100 ? 5 : 3));
    const std::string_view turns = input.bytes(size_t{4} * calls);
    platform.rowBytes = input.rest();

    std::set<uint32_t> families;
    for (Input turn(reinterpret_cast<const uint8_t*>(turns.data()), turns.size()); !turn.isOver();) {
        const uint32_t family = turn.below(QOS_TLM_FAMILY_NUM);
        platform.nowMs += turn.byte() * 250ull - 1000;
        platform.untilFailure = turn.byte();
        platform.nextFailure = turn.byte();
        platform.untilFailure *= platform.nextFailure % 8 == 0 ? 16 : 1;
        families.insert(family);
        sample(family, *request);
    }
    REQUIRE(memcmp(&before, request.get(), sizeof before) == 0);

    // Over an empty table every pass ends.
    platform.rowCount = 0;
    platform.untilFailure = 0;
    request->encodeType = QOS_TLM_ENCODE_GPB;
    for (const uint32_t family : families) {
        REQUIRE(sample(family, *request) == QOS_TLM_RESULT_DONE);
    }
    fuzz::forget();
    REQUIRE(platform.blocks == 0);
    return 0;
}
