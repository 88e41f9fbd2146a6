// Random requests, table changes, clock moves and failures against a plain model of what must arrive.
//
// NIVEX_QOS_SOAK_STEPS makes the run longer, NIVEX_QOS_SEED makes it another one.
#include <cstdlib>
#include <numeric>
#include <set>

#include "plugin/families.h"
#include "support/models.h"
#include "support/pattern_model.h"

using fake::platform;
using nlohmann::json;

namespace {

using Rows = std::vector<size_t>;

uint32_t setting(const char* name, uint32_t otherwise) {
    const char* text = getenv(name);
    return text == nullptr ? otherwise : static_cast<uint32_t>(strtoul(text, nullptr, 10));
}

const std::map<std::string, std::optional<uint32_t>> kNumbers = {{"3", 3}, {" +5", 5}, {"4294967297", 1},
                                                                 {"0", 0}, {"x", {}},  {"3 ", {}}};
const std::map<std::string, uint32_t> kServiceClasses = {{"ef", 5}, {"af1", 1}, {"be", 0}, {"EF", 0}, {"cs7", 7}};

class ModelTest : public StartedPluginTest, protected Dice {
  protected:
    // Of one family: its request, and the pass that it is in.
    struct Pass {
        QosTlmQueryParam request{};
        uint32_t open = 0;
        std::set<uint32_t> keys{};
        size_t blocks = 0;  // one for each time that a key was marked
    };

    ModelTest() : Dice(setting("NIVEX_QOS_SEED", 7)) {}
    template <class Map>
    std::string keyIn(const Map& map) {
        return std::next(map.begin(), below(map.size()))->first;
    }
    bool oneIn(uint32_t chances) { return below(chances) == 0; }

    // --- The model ---

    bool holds(const Family& family, size_t row, const QosTlmCondition& condition) {
        for (const Condition& honoured : family.conditions) {
            if (honoured.field != condition.fieldName) {
                continue;
            }
            const json value = valueOf(family, row, honoured.column);
            switch (honoured.match) {
                case Match::pattern:
                    return patterns_.try_emplace(condition.value, condition.value).first->second.matches(value);
                case Match::exact:
                    return value == condition.value;
                case Match::serviceClass:
                    return value == kServiceClasses.at(condition.value);
                case Match::number:
                    if (!kNumbers.at(condition.value)) {
                        log_.push_back(family.noNumber);
                        return false;
                    }
                    return value == *kNumbers.at(condition.value);
            }
        }
        return true;
    }
    bool conditionsHold(const Family& family, size_t row, const QosTlmQueryParam& request) {
        return std::all_of(request.conditions, request.conditions + request.conditionNum,
                           [&](const QosTlmCondition& condition) { return holds(family, row, condition); });
    }
    static bool compares(const QosTlmThreshold& threshold, uint32_t value) {
        const auto limit = static_cast<uint32_t>(threshold.value);
        const bool results[] = {value == limit, value > limit, value >= limit, value < limit, value <= limit};
        return threshold.op < std::size(results) && results[threshold.op];
    }
    static bool thresholdsPass(const Family& family, size_t row, const QosTlmQueryParam& request) {
        uint64_t value = 0;
        for (const Leaf& leaf : family.leaves) {
            if (leaf.name == request.thresholds[0].fieldName && !leaf.compared.empty()) {
                value = valueOf(family, row, leaf.compared);
            }
        }
        const bool first = compares(request.thresholds[0], static_cast<uint32_t>(value));
        const bool second = compares(request.thresholds[1], static_cast<uint32_t>(value));
        const bool both[] = {false, first && second, second, false};
        return request.thresholdNum == 0 || (request.thresholdNum == 1 ? first : both[request.thresholdRelation]);
    }
    // Every test of a record but the one whether it was sent.
    bool passes(const Family& family, size_t row, const QosTlmQueryParam& request) {
        const bool held = conditionsHold(family, row, request);
        if (!held || family.isMonitor()) {
            return held;
        }
        const auto key = keyOf(family, row);
        const auto isOver = [&](uint32_t period) {
            return memory_->isOverPeriod(key->key, key->sub, family.index, period) != 0;
        };
        if (request.suppressRedundant == 1) {
            if (!key) {
                log_.push_back("[Tlm IsRedundantTmBufStat] parse string slot to num slot failed.");
                return true;
            }
            uint64_t digest = hasQueues(family) ? key->sub : 0;
            for (const std::string& column : family.digest) {
                digest = valueOf(family, row, column).get<uint64_t>() ^ (digest << 9 | digest >> 55);
            }
            return isOver(request.redundantPeriod) ||
                   memory_->isRedundant(key->key, key->sub, digest, family.index) == 0;
        }
        if (request.periodCheck == 1 && !key) {
            log_.push_back("[Tlm IsSelfDefEvtTmBufStat] parse string slot to num slot failed.");
            return false;
        }
        return (request.periodCheck != 1 || isOver(request.selfDefPeriod)) && thresholdsPass(family, row, request);
    }
    static bool isReported(const Family& family, size_t row) {
        return family.index != QOS_TLM_FAMILY_BUF_ING || valueOf(family, row, "is_lossless") != 0;
    }

    // One call without failures, by the plain rule; the rows that it delivered. What came tells where a payload ended.
    Rows walk(const Family& family, uint32_t result, size_t uploaded, bool refused) {
        Pass& pass = passes_[family.index];
        const uint32_t continues = std::exchange(pass.open, 0);
        if (continues == 0) {
            pass.keys.clear();
            pass.blocks = 0;
        }
        Rows rows;
        uint32_t count = 0;
        for (size_t row = 0; row < rowCount(family) && pass.open == 0; ++row) {
            if (endsByPayload(family) && result == QOS_TLM_RESULT_MORE && rows.size() == uploaded) {
                pass.open = 1;
                ++putOff_;
                break;
            }
            const auto key = keyOf(family, row);
            if (!isReported(family, row) || (key && continues == 1 && pass.keys.count(key->sent) != 0)) {
                continue;
            }
            if (!key) {
                log_.push_back("[Tlm IsSentTmBufStat] parse string slot to num slot failed.");
            }
            if (!passes(family, row, pass.request)) {
                continue;
            }
            rows.push_back(row);
            if (!key) {
                log_.push_back("[Tlm IsTmBufStatRecordCntOver] parse string slot to num slot failed.");
                continue;
            }
            pass.keys.insert(key->sent);
            ++pass.blocks;
            pass.open = ++count == family.batchLimit ? 1 : 0;
        }
        size_t size = 0;
        if (refused && pass.request.encodeType == QOS_TLM_ENCODE_JSON) {
            for (const size_t row : rows) {
                size += entryOf(family, row).dump().size() + 1;
            }
            EXPECT_GT(size, QOS_TLM_PAYLOAD_SIZE * 9 / 10) << "refused though it fits";
        }
        EXPECT_EQ(result, refused || count == 0 ? 0 : pass.open);
        return refused || count == 0 ? Rows() : rows;
    }

    // --- The calls ---

    bool endsByPayload(const Family& family) const {
        return byPayload_ || (family.isMonitor() && passes_[family.index].request.encodeType == QOS_TLM_ENCODE_JSON);
    }
    uint32_t& flagOf(const Family& family) const { return *pluginSymbolAs<uint32_t*>(family.flag); }
    uint32_t call(const Family& family) {
        platform.uploads.clear();
        platform.calls.clear();
        platform.allocSizes.clear();
        log_.clear();
        ++calls_;
        return callEntryPoint(family, passes_[family.index].request);
    }
    static bool isRow(const Family& family, size_t row, const json& entry) {
        return sameJson(entry, json(entryOf(family, row)));
    }
    void expectNothingLeft() const {
        EXPECT_EQ(fake::liveObjects(), 0u);
        EXPECT_EQ(fake::liveCjsonBlocks(), 0u);
        EXPECT_EQ(fake::liveBlocks(), std::accumulate(std::begin(passes_), std::end(passes_), size_t{0},
                                                      [](size_t sum, const Pass& pass) { return sum + pass.blocks; }));
    }
    Rows callAndCompare(const Family& family) {
        const uint32_t result = call(family);
        return compare(family, result);
    }
    Rows compare(const Family& family, uint32_t result) {
        const Pass& pass = passes_[family.index];
        auto log = fake::takeLog();
        const bool refused = !log.empty() && log.back() == "[Tlm SetSampleData] memcpy error, ret=34.";
        if (refused) {
            EXPECT_TRUE(platform.uploads.empty() && !endsByPayload(family));
            log.pop_back();
            ++refused_;
        }
        const uint32_t length = platform.uploads.empty() ? 0 : platform.uploads[0].sample.dataLen;
        const auto entries = takeEntries(family, pass.request.encodeType, false);
        const size_t putOffBefore = putOff_;
        const Rows rows = walk(family, result, entries.size(), refused);
        EXPECT_TRUE(putOff_ == putOffBefore || length > QOS_TLM_PAYLOAD_SIZE - 1024) << "put off at " << length;
        EXPECT_EQ(log, log_);
        EXPECT_EQ(entries.size(), rows.size());
        for (size_t i = 0; i < entries.size() && !HasFailure(); ++i) {
            EXPECT_TRUE(isRow(family, rows[i], entries[i])) << entries[i] << " is not row " << rows[i];
        }
        EXPECT_EQ(flagOf(family), pass.open);
        expectNothingLeft();
        records_ += entries.size();
        return rows;
    }
    // A pass in which nothing happens: every record that passes, once.
    void quietPass(const Family& family) {
        Pass& pass = passes_[family.index];
        while (pass.open == 1 && !HasFailure()) {
            callAndCompare(family);
        }
        CALL(QOS_TLM_SetBatchPolicy)(byPayload_ = true);
        pass.request.suppressRedundant = pass.request.periodCheck = 0;
        Rows delivered;
        do {
            const Rows rows = callAndCompare(family);
            delivered.insert(delivered.end(), rows.begin(), rows.end());
        } while (pass.open == 1 && !HasFailure());
        std::multiset<uint32_t> wanted;
        std::multiset<uint32_t> arrived;
        for (size_t row = 0; row < rowCount(family); ++row) {
            if (keyOf(family, row) && isReported(family, row) && passes(family, row, pass.request)) {
                wanted.insert(keyOf(family, row)->sent);
            }
        }
        for (const size_t row : delivered) {
            if (keyOf(family, row)) {
                arrived.insert(keyOf(family, row)->sent);
            }
        }
        const std::set<uint32_t> keys(wanted.begin(), wanted.end());
        if (keys.size() == wanted.size()) {
            EXPECT_EQ(arrived, wanted);
            ++exactPasses_;
        } else {  // of records that share a key, one at least
            EXPECT_EQ(std::set<uint32_t>(arrived.begin(), arrived.end()), keys);
        }
    }
    // A call in which one platform call, of those that the last one made, fails.
    void failingCall(const Family& family) {
        std::map<std::string, uint32_t> counts;
        for (const char* function : platform.calls) {
            ++counts[function];
        }
        const std::string function = counts.empty() ? "NIVEX_AllocBuff" : keyIn(counts);
        fake::failCall(function, 1 + below(std::max(1u, counts[function])), 1 + below(3));
        Pass& pass = passes_[family.index];
        const auto before = pass.keys;
        const uint32_t result = call(family);
        const bool failed = fake::hasFailed(function);
        fake::failNothing();
        if (!failed) {
            compare(family, result);
            return;
        }
        ++failures_;
        SCOPED_TRACE("after a failure of " + function);
        EXPECT_LE(result, QOS_TLM_RESULT_FAILED);
        EXPECT_TRUE(result != QOS_TLM_RESULT_FAILED || platform.uploads.empty());
        fake::takeLog();
        EXPECT_LE(entriesThatAreNoRow(family, takeEntries(family, pass.request.encodeType, false)), 1u)
            << "a single one may lack something";
        // How far the call came is the plug-in's to say.
        memory_->adopt();
        const auto keys = sentKeys(family.index);
        pass.keys = {keys.begin(), keys.end()};
        pass.blocks = keys.size();
        const bool opened = !fake::callsWith("db_root_iterator_next").empty();
        EXPECT_TRUE(opened || (flagOf(family) == pass.open && pass.keys == before)) << "an unopened table ends no pass";
        EXPECT_TRUE(!opened || flagOf(family) == 0 || result == QOS_TLM_RESULT_MORE || platform.uploads.empty());
        pass.open = flagOf(family);
        expectNothingLeft();
        quietPass(family);
    }

    // --- What happens in between ---

    void change(const Family& family) {
        Rows rows(rowCount(family));
        std::iota(rows.begin(), rows.end(), 0);
        const auto makeRow = [&] {
            addRow(family, below(numbers_));
            const size_t row = rowCount(family) - 1;
            if (family.index == QOS_TLM_FAMILY_TM_BUF && oneIn(40)) {
                setText(family, row, "slotId", "none");
            }
            if (family.index == QOS_TLM_FAMILY_BUF_ING && oneIn(10)) {
                setValue(family, row, "is_lossless", 0);
            }
            for (const std::string& column : family.digest) {
                if (long_) {
                    setValue(family, row, column, 123'456'789'012'345'678 + below(1000));
                }
            }
            return row;
        };
        rearrange(rows, makeRow, least_ % (family.batchLimit * 3 / 2));
        pickRows(family, rows);
        const auto columns = family.isMonitor() ? std::vector<std::string>{"used_buf"} : family.digest;
        for (uint32_t times = below(5); times > 0 && rowCount(family) > 0; --times) {
            const uint64_t values[] = {0, 1, 25, (1ull << 32) + 25, ~0ull, below(100)};
            setValue(family, below(rowCount(family)), columns[below(columns.size())], values[below(6)]);
        }
    }
    QosTlmQueryParam makeRequest(const Family& family) {
        QosTlmQueryParam request{};
        request.encodeType = below(2);
        for (uint32_t conditions = oneIn(2) ? below(3) : 0; conditions > 0; --conditions) {
            const Condition& honoured = family.conditions[below(family.conditions.size())];
            const std::string patterns[] = {"e*", "e1*", "E*", "*", "e[", "e*5"};
            const json value = rowCount(family) == 0 ? "e0" : valueOf(family, below(rowCount(family)), honoured.column);
            setCondition(request, oneIn(4) ? "Interface-name" : honoured.field,
                         honoured.match == Match::number              ? keyIn(kNumbers)
                         : honoured.match == Match::serviceClass      ? keyIn(kServiceClasses)
                         : honoured.match == Match::exact || oneIn(4) ? value.get<std::string>()
                                                                      : patterns[below(6)]);
        }
        for (uint32_t thresholds = oneIn(3) ? 1 + below(2) : 0; thresholds > 0; --thresholds) {
            const uint64_t values[] = {0, 3, 25, 50, (7ull << 32) + 25, UINT32_MAX};
            setThreshold(request, oneIn(8) ? "x" : family.leaves[below(family.leaves.size())].name,
                         static_cast<uint8_t>(below(6)), values[below(6)]);
        }
        request.thresholdRelation = static_cast<uint8_t>(below(4));
        (oneIn(2) ? request.suppressRedundant : request.periodCheck) = below(3);
        request.redundantPeriod = request.selfDefPeriod = std::array{0u, 1u, 10u, 60u}[below(4)];
        return request;
    }
    void restart() {
        reload();
        fake::watchCjson(GLOBAL(g_qosTlmCjsonHandle), GLOBAL(g_qosTlmCjsonFunc));
        memory_ = std::make_unique<MemoryModel>();
        std::fill(std::begin(passes_), std::end(passes_), Pass{});
        byPayload_ = false;
        numbers_ = std::array{100u, 600u, 100'000u}[below(3)];
        least_ = below(900);
        long_ = oneIn(2);
    }
    void step() {
        const Family& family = kFamilies[below(kFamilies.size())];
        SCOPED_TRACE(family.tag);
        if (oneIn(2) || rowCount(family) == 0) {
            change(family);
        }
        if (oneIn(2)) {
            platform.nowMs += below(20'000) - 5000ull;
        }
        if (oneIn(3)) {
            passes_[family.index].request = makeRequest(family);
        }
        if (oneIn(5)) {
            CALL(QOS_TLM_SetBatchPolicy)(byPayload_ = oneIn(2));
        }
        oneIn(6) ? failingCall(family) : oneIn(8) ? quietPass(family) : (void)callAndCompare(family);
    }

    std::unique_ptr<MemoryModel> memory_;
    std::map<std::string, PatternModel> patterns_;
    Pass passes_[QOS_TLM_FAMILY_NUM];
    std::vector<std::string> log_;
    bool byPayload_ = false;
    bool long_ = false;
    uint32_t numbers_ = 0;
    uint32_t least_ = 0;
    size_t calls_ = 0, records_ = 0, failures_ = 0, exactPasses_ = 0, putOff_ = 0, refused_ = 0;
};

TEST_F(ModelTest, WhateverHappensTheRightRecordsArrive) {
#if defined(__OPTIMIZE__) && !defined(NIVEX_QOS_EMULATED) && !defined(__SANITIZE_ADDRESS__)
    const uint32_t steps = setting("NIVEX_QOS_SOAK_STEPS", 600);
#else
    const uint32_t steps = setting("NIVEX_QOS_SOAK_STEPS", 300);
#endif
    for (uint32_t number = 0; number < steps && !HasFailure(); ++number) {
        SCOPED_TRACE(testing::Message() << "step " << number << " seed " << setting("NIVEX_QOS_SEED", 7));
        if (number % 60 == 0) {
            if (number > 0) {
                memory_->expectSame();
            }
            restart();
        }
        step();
    }
    printf("%u steps, %zu calls, %zu records, %zu failures, %zu exact passes, %zu put off, %zu refused\n", steps,
           calls_, records_, failures_, exactPasses_, putOff_, refused_);
    EXPECT_TRUE(HasFailure() || (failures_ > steps / 30 && exactPasses_ > 5 && putOff_ > 0 && refused_ > 0))
        << "too little happened";
}

}  // namespace
