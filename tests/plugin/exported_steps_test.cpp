// The exported steps of every family: a query made of them sends what the family's own query sends.
#include <dlfcn.h>

#include <cstring>

#include "nivex_qos/assembly.h"
#include "nivex_qos/buf_monitor_stat.h"
#include "nivex_qos/queue_stat.h"
#include "platform/qos_db.h"
#include "plugin/families.h"
#include "support/untyped_call.h"

using fake::platform;

namespace {

enum class By { entryPoint, check, questions };

// The batches of three passes six seconds apart: record count and payload.
using Batches = std::vector<std::pair<uint32_t, std::string>>;

class ExportedStepsTest : public StartedPluginTest, public testing::WithParamInterface<std::tuple<Family, uint32_t>> {
  protected:
    void SetUp() override {
        StartedPluginTest::SetUp();
        std::tie(family_, request_.encodeType) = GetParam();
    }

    // A step, called with whatever it takes: a record goes untyped, as the binary interface allows and the type system
    // does not.
    template <typename... Arguments>
    UNTYPED_CALL uint32_t step(const std::string& before, const std::string& after, Arguments... arguments) const {
        return pluginSymbolAs<uint32_t (*)(Arguments...)>(stepName(family_, before, after))(arguments...);
    }

    bool passes(By by, uint32_t previous, void* record, const QosTlmQueryParam* request, uint32_t* value) const {
        if (by == By::check) {
            return (family_.isMonitor() ? step("Check", "", previous, record, request)
                                        : step("Check", "", previous, record, request, value)) == 1;
        }
        if (step("IsSent", "", previous, record) == 1 || step("IsCondition", "", record, request) == 0) {
            return false;
        }
        if (family_.isMonitor()) {
            return true;
        }
        if (request->suppressRedundant == 1) {
            return step("IsRedundant", "", record, request) == 0;
        }
        if (step(request->periodCheck == 1 ? "IsSelfDefEvt" : "IsThreshold", "", record, request, value) == 0) {
            return false;
        }
        if (request->thresholdNum > 0) {
            uint32_t compared = ~*value;
            const char* field = request->thresholds[0].fieldName;
            step("Get", "FieldValue", field, record, &compared);
            EXPECT_EQ(compared, *value);
        }
        return true;
    }

    uint32_t compose(By by, const QosTlmQueryParam& request, QosTlmSampleData& sample) const {
        void* object = nullptr;
        void* iterator = nullptr;
        auto* root = reinterpret_cast<QosTlmNode*>(&sample);  // what they held before must not matter
        auto* list = root;
        EXPECT_EQ(step("Get", "Iter", &object, &iterator), 0u);
        EXPECT_EQ(step("Get", "StartNode", request.encodeType, &root, &list), 0u);
        if (request.encodeType == QOS_TLM_ENCODE_JSON) {  // whose text has no numbers
            EXPECT_EQ(list->data.fieldNumber, family_.isMonitor() ? 61u : 1u);
        }
        const uint32_t previous = step("Init", "QueryFlag");
        alignas(8) uint8_t bytes[512];  // a record of any family; nor what this held
        memset(bytes, 0xA5, sizeof bytes);
        void* record = bytes;
        uint32_t count = 0;
        uint32_t next = 0;
        while ((next = db_root_iterator_next(iterator)) == 0) {
            EXPECT_EQ(step("Read", "Field", object, record), 0u);
            if (passes(by, previous, record, &request, &sample.thresholdValue)) {
                EXPECT_EQ(step("Get", "DataNode", list, record), 0u);
                if (step("Is", "RecordCntOver", record, &count) == 1) {
                    break;
                }
            }
        }
        EXPECT_TRUE(next == 0 || next == QOS_DB_END);
        CALL(QOS_TLM_EncodingData)(root, request.encodeType, count, &sample);
        CALL(QOS_TLM_ReleaseNode)(root);
        const std::string release = "db_release_qos_tlm_" + family_.table + "_object";
        reinterpret_cast<void (*)(void*)>(dlsym(RTLD_DEFAULT, release.c_str()))(object);
        return next == 0 ? QOS_TLM_RESULT_MORE : QOS_TLM_RESULT_DONE;
    }

    Batches batches(By by, const QosTlmQueryParam& request) {
        reload();
        platform.quick = true;
        // Composed steps end a batch at its limit alone; a JSON batch of monitoring results of that size does not fit.
        addRows(family_,
                family_.isMonitor() && request.encodeType == QOS_TLM_ENCODE_JSON ? 60 : family_.batchLimit + 3);
        Batches all;
        for (int pass = 0; pass < 3; ++pass, platform.nowMs += 6'000) {
            if (by == By::entryPoint) {
                runPass(family_, request);
                continue;
            }
            uint32_t result = QOS_TLM_RESULT_MORE;
            while (result == QOS_TLM_RESULT_MORE) {
                QosTlmSampleData sample{};
                result = compose(by, request, sample);
                if (sample.recordCount > 0) {
                    platform.uploads.push_back({0, sample});
                }
            }
        }
        for (const auto& [moduleId, sample] : platform.uploads) {
            all.emplace_back(sample.recordCount,
                             std::string(reinterpret_cast<const char*>(sample.data), sample.dataLen));
        }
        return all;
    }

    Family family_{};
    QosTlmQueryParam request_{};
};

TEST_P(ExportedStepsTest, MakeTheSameQuery) {
    const Condition& honoured = family_.conditions.back();
    addRows(family_, 4);
    QosTlmQueryParam condition = request_;
    setCondition(condition, honoured.field,
                 honoured.match == Match::pattern        ? "E1*"
                 : honoured.match == Match::number       ? "3"
                 : honoured.match == Match::serviceClass ? "ef"
                                                         : valueOf(family_, 3, honoured.column).get<std::string>());
    QosTlmQueryParam threshold = request_;
    setThreshold(threshold, family_.leaves.back().name, QOS_TLM_OP_GREATER, 12);
    QosTlmQueryParam period = threshold;
    period.periodCheck = 1;
    period.selfDefPeriod = 10;
    QosTlmQueryParam suppress = request_;
    suppress.suppressRedundant = 1;
    suppress.redundantPeriod = 10;
    int number = 0;
    for (const QosTlmQueryParam& request : {request_, condition, threshold, period, suppress}) {
        SCOPED_TRACE(number++);
        const Batches sent = batches(By::entryPoint, request);
        EXPECT_FALSE(sent.empty());
        EXPECT_EQ(batches(By::check, request), sent);
        EXPECT_EQ(batches(By::questions, request), sent);
    }
}

TEST_P(ExportedStepsTest, WhatFailsLeavesNothing) {
    const Tree list = makeTree("list", 1);
    alignas(8) uint8_t record[512] = {};  // its slot is no number
    for (const std::string& function :
         {"db_create_qos_tlm_" + family_.table + "_obj", std::string("db_create_root_iter")}) {
        void* object = list.get();
        void* iterator = list.get();
        fake::failCall(function, 1);
        EXPECT_EQ(step("Get", "Iter", &object, &iterator), 1u);
        EXPECT_TRUE(object == nullptr && iterator == nullptr);
    }
    for (const char* start : {"GpbStartNode", "JsonStartNode"}) {
        QosTlmNode* root = list.get();
        QosTlmNode* top = list.get();
        fake::failCall("NIVEX_AllocBuff", 2);
        EXPECT_EQ(step("Get", start, &root, &top), 1u);
        EXPECT_TRUE(root == nullptr && top == nullptr);
    }
    fake::failCall("NIVEX_AllocBuff", 1);
    EXPECT_EQ(step("Get", "DataNode", list.get(), record), 1u);
    EXPECT_EQ(fake::takeLog().size(), 5u);
    EXPECT_EQ(fake::liveBlocks(), 1u);
    uint32_t count = 0;
    EXPECT_EQ(step("IsSent", "", 1u, record), 0u);
    EXPECT_EQ(step("Is", "RecordCntOver", record, &count), 0u);
    if (!family_.isMonitor()) {
        EXPECT_EQ(step("IsRedundant", "", record, &request_) + step("IsSelfDefEvt", "", record, &request_, &count), 0u);
    }
    const uint32_t isUnknown = family_.index == QOS_TLM_FAMILY_TM_BUF ? 1 : 0;
    EXPECT_EQ(count, 1 - isUnknown);
    EXPECT_EQ(fake::takeLog().size(), 4 * isUnknown);
}

INSTANTIATE_TEST_SUITE_P(Families, ExportedStepsTest, eachFamilyAndEncoding(), nameOf);

using QueueStepsTest = PluginTest;

TEST_F(QueueStepsTest, StepsRefuseNull) {
    const QosTlmQueryParam any{};
    const auto* const request = &any;
    QosTlmQueueStat record{};
    QosTlmNode* root = nullptr;
    void* object = nullptr;
    uint32_t value = 77;
    const auto open = CALL(QOS_TLM_GetQueueStatIter);
    EXPECT_EQ(open(nullptr, &object) + open(&object, nullptr), 2u);
    const auto start = CALL(QOS_TLM_GetQueueStatStartNode);
    EXPECT_EQ(start(0, nullptr, &root) + start(1, &root, nullptr) + start(2, &root, &root), 3u);
    for (const auto startOf : {CALL(QOS_TLM_GetQueueStatGpbStartNode), CALL(QOS_TLM_GetQueueStatJsonStartNode)}) {
        EXPECT_EQ(startOf(nullptr, &root) + startOf(&root, nullptr), 2u);
    }
    const auto read = CALL(QOS_TLM_ReadQueueStatField);
    EXPECT_EQ(read(nullptr, &record) + read(&value, nullptr), 2u);
    EXPECT_EQ(CALL(QOS_TLM_GetQueueStatDataNode)(nullptr, &record), 1u);

    const auto check = CALL(QOS_TLM_CheckQueueStat);
    EXPECT_EQ(check(1, nullptr, request, &value) + check(0, &record, nullptr, &value), 0u);
    EXPECT_EQ(CALL(QOS_TLM_IsSentQueueStat)(1, nullptr), 0u);
    for (const auto ask : {CALL(QOS_TLM_IsConditionQueueStat), CALL(QOS_TLM_IsRedundantQueueStat)}) {
        EXPECT_EQ(ask(nullptr, request) + ask(&record, nullptr), 0u);
    }
    for (const auto ask : {CALL(QOS_TLM_IsThresholdQueueStat), CALL(QOS_TLM_IsSelfDefEvtQueueStat)}) {
        EXPECT_EQ(ask(nullptr, request, &value) + ask(&record, nullptr, &value), 0u);
    }
    const auto isFull = CALL(QOS_TLM_IsQueueStatRecordCntOver);
    EXPECT_EQ(isFull(nullptr, &value) + isFull(&record, nullptr), 0u);
    CALL(QOS_TLM_GetQueueStatFieldValue)("pass-bytes", nullptr, &value);
    CALL(QOS_TLM_GetQueueStatFieldValue)("pass-bytes", &record, nullptr);
    EXPECT_EQ(value, 77u);
    EXPECT_EQ(fake::liveBlocks(), 0u);
}

using MonitorStepsTest = PluginTest;

TEST_F(MonitorStepsTest, CalendarAndNull) {
    QosTlmDateTime moment{};
    EXPECT_EQ(CALL(QOS_ConvertTimestampToDateTime)(1'709'802'302, &moment), 0u);
    EXPECT_EQ(std::tie(moment.year, moment.month, moment.day), std::make_tuple(2024u, 3, 7));
    EXPECT_EQ(std::tie(moment.hour, moment.minute, moment.second), std::make_tuple(9, 5, 2));
    fake::failCall("KAT_SystimeSec2Time", 1, 6);
    EXPECT_EQ(CALL(QOS_ConvertTimestampToDateTime)(0, &moment), 6u);
    EXPECT_NE(CALL(QOS_ConvertTimestampToDateTime)(0, nullptr), 0u);
    EXPECT_EQ(CALL(QOS_TLM_TimeStampToDateTime)(0, nullptr, 0), 1u);
    QosTlmBufMonitorStat record{};
    const auto read = CALL(QOS_TLM_ReadBufMonitorStatField);
    EXPECT_EQ(read(nullptr, &record) + read(&record, nullptr), 2u);
    EXPECT_EQ(CALL(QOS_TLM_CheckBufMonitorStat)(0, nullptr, nullptr), 0u);
}

}  // namespace
