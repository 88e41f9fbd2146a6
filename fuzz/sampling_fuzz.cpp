// Sampling calls: any request over any rows, with failures anywhere, some calls in a row on any of the paths.
#include <cstring>
#include <memory>
#include <set>
#include <stdexcept>

#include "devhost/sampling/decode.h"
#include "fuzz/input.h"
#include "fuzz/platform.h"
#include "nivex_qos/tracking.h"

using fake::platform;
using fuzz::Input;

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

// What the rows of all tables are made of: a row reads its columns from its number times step on; the bytes repeat.
struct RowBytes {
    std::string_view bytes;
    uint32_t step;
    bool distinctKeys;  // keys are the row's number

    uint32_t row = 0;
    size_t cursor = 0;

    uint8_t next() { return bytes.empty() ? 0 : static_cast<uint8_t>(bytes[cursor++ % bytes.size()]); }
    template <std::unsigned_integral Number>
    void read(bool isKey, Number& value) {
        uint64_t number = row + 1;
        for (size_t i = 0; i < sizeof value && !(isKey && distinctKeys); ++i) {
            number = number << 8 | next();
        }
        value = static_cast<Number>(number);
    }
    void read(bool isKey, std::optional<std::string>& value) {
        value = std::to_string(row + 1);
        if (isKey && distinctKeys) {
            return;
        }
        const uint8_t length = next();
        value = std::string(length < 0xF0 ? length % 32 : 32, '\0');
        std::generate(value->begin(), value->end(), [this] { return static_cast<char>(next()); });
        if (length == 0xFF) {
            value.reset();
        }
    }
};

#define FUZZ_ROLE_KEY true
#define FUZZ_ROLE_QUEUE true
#define FUZZ_ROLE_VALUE false
#define FUZZ_COLUMN(table, column, kind, role) from.read(FUZZ_ROLE_##role, row.column);
#define FUZZ_TABLE(table, columns)                        \
    platform.tables.table.resize(rowCount);               \
    for (from.row = 0; from.row < rowCount; ++from.row) { \
        auto& row = platform.tables.table[from.row];      \
        from.cursor = size_t{from.row} * from.step;       \
        columns(FUZZ_COLUMN, table)                       \
    }
void fillTables(RowBytes from, uint32_t rowCount){QOS_DB_TABLES(FUZZ_TABLE)}

size_t sentKeys() {
    size_t count = 0;
    for (const auto& buckets : g_qosTlmHashData) {
        for (const QosTlmHashNode& bucket : buckets) {
            for (const QosTlmHashNode* node = bucket.next; node != nullptr; node = node->next) {
                ++count;
            }
        }
    }
    return count;
}

void requireDecodes(uint32_t family, uint32_t encodeType, const QosTlmSampleData& sample) {
    const host::Catalogued* path = host::findInCatalogue(g_qosTlmTaskMap[family].xpathAlias);
    REQUIRE(path != nullptr);
    try {
        const auto decode = encodeType == QOS_TLM_ENCODE_GPB ? host::decodeGpb : host::decodeJson;
        const size_t records = decode(*path, {reinterpret_cast<const char*>(sample.data), sample.dataLen}).size();
        // A chip whose slot is no number is sent, but does not count.
        REQUIRE(records == sample.recordCount || (family == QOS_TLM_FAMILY_TM_BUF && records > sample.recordCount));
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        std::abort();
    }
}

uint32_t sample(uint32_t family, const QosTlmQueryParam& request) {
    platform.uploads.clear();
    platform.hasFailed = false;
    const uint32_t result = g_qosTlmTaskMap[family].queryFunc(1, 2, &request);
    REQUIRE(result <= QOS_TLM_RESULT_FAILED);
    REQUIRE(result != QOS_TLM_RESULT_FAILED || platform.hasFailed || request.encodeType > QOS_TLM_ENCODE_JSON);
    REQUIRE(fake::liveObjects() == 0);
    REQUIRE(fake::liveBlocks() == sentKeys());
    REQUIRE(platform.uploads.size() <= 1);
    for (const auto& [moduleId, sample] : platform.uploads) {
        REQUIRE(result != QOS_TLM_RESULT_FAILED);
        REQUIRE(sample.recordCount > 0);
        if (!platform.hasFailed) {
            requireDecodes(family, request.encodeType, sample);
        }
    }
    return result;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::beginInput();
    Input input(data, size);
    const auto request = readRequest(input);
    const QosTlmQueryParam before = *request;

    const uint8_t flags = input.byte();
    REQUIRE(QOS_TLM_SetBatchPolicy(flags % 2) == 0);
    const uint8_t rows = input.byte();
    const uint32_t rowCount = rows < 0xFC ? rows % 8 : 140;  // beyond the limit of some paths
    platform.failureCode = 1 + input.byte();
    const auto calls = static_cast<uint8_t>(1 + input.below(rowCount < 100 ? 5 : 3));
    const std::string_view turns = input.bytes(size_t{4} * calls);
    fillTables({input.rest(), flags >> 2 & 7u, (flags >> 1 & 1) != 0}, rowCount);

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
    platform.tables = {};
    platform.untilFailure = 0;
    request->encodeType = QOS_TLM_ENCODE_GPB;
    for (const uint32_t family : families) {
        REQUIRE(sample(family, *request) == QOS_TLM_RESULT_DONE);
    }
    for (uint32_t family = 0; family < QOS_TLM_FAMILY_NUM; ++family) {
        QOS_HashRelease(family);
    }
    memset(g_qosTlmHisData, 0, sizeof g_qosTlmHisData);
    memset(g_qosTlmStatTime, 0, sizeof g_qosTlmStatTime);
    REQUIRE(fake::liveBlocks() == 0);
    return 0;
}
