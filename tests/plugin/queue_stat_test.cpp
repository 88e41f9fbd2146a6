// The queue statistics family: its filters, its memory of records, its steps one by one.
#include "nivex_qos/queue_stat.h"

#include <cstring>

#include "nivex_qos/assembly.h"
#include "platform/qos_db.h"
#include "plugin/families.h"

using fake::platform;
using testing::ElementsAre;

namespace {

using Key = std::pair<std::string, uint32_t>;  // interface name and queue of an entry

class QueueStatTest : public StartedPluginTest {
  protected:
    // One call; the entries that it delivered.
    std::vector<Key> sample() {
        EXPECT_EQ(CALL(QOS_TLM_QueryQueueStat)(1, 2, &request_), QOS_TLM_RESULT_DONE);
        std::vector<Key> keys;
        for (const auto& entry : takeEntries(familyOf(QOS_TLM_FAMILY_QUEUE), request_.encodeType)) {
            keys.emplace_back(entry["interface-name"], entry["service-class"]);
        }
        return keys;
    }
    static void addQueue(uint32_t ifIndex, const std::string& name, uint32_t queue) {
        platform.tables.queue_stat.push_back({ifIndex, name, queue, 1, 2, 3, 4, 5, 6, 7, 8});
    }

    QosTlmQueryParam request_{};
};

TEST_F(QueueStatTest, TextsThatFillTheirFields) {
    for (uint32_t queue = 5; queue < 8; ++queue) {
        addQueue(1, "eth1/0", queue);
    }
    addQueue(1, "eth1/0", 0);
    const auto passing = [&](const std::string& field, const std::string& value) {
        request_ = {};
        setCondition(request_, field, value);
        return sample().size();
    };
    EXPECT_EQ(passing("service-class", std::string(34, 'e')), 1u) << "no class, so queue 0";
    EXPECT_EQ(passing("interface-name" + std::string(54, 'x'), "none"), 4u);
    EXPECT_EQ(passing("interface-nam", "none"), 4u);
    request_ = {};
    request_.conditionNum = 31;
    setCondition(request_, "service-class", "cs7");
    request_.conditionNum = 4'000'000'000;
    EXPECT_THAT(sample(), ElementsAre(Key("eth1/0", 7))) << "the last of the 32 counts";
    for (const std::string& name : {std::string(65, 'p'), std::string()}) {
        request_ = {};
        setThreshold(request_, name, QOS_TLM_OP_EQUAL, 0);
        EXPECT_EQ(sample().size(), 4u) << "an unknown name compares 0";
    }
    request_ = {};
    setThreshold(request_, "pass-packets", QOS_TLM_OP_GREATER_EQUAL, 1);
    setThreshold(request_, "service-class", QOS_TLM_OP_LESS, 5);  // the first threshold names the field of both
    request_.thresholdRelation = QOS_TLM_RELATION_AND;
    EXPECT_EQ(sample().size(), 4u);
}

TEST_F(QueueStatTest, QuestionsOneByOne) {
    QosTlmQueueStat record{3, "eth0", 2, (1ull << 32) + 100, 0, 0, 0, 0, 0, 0, 0};
    uint32_t value = 77;
    CALL(QOS_TLM_GetQueueStatFieldValue)("pass-packets", &record, &value);
    EXPECT_EQ(value, 100u);
    CALL(QOS_TLM_GetQueueStatFieldValue)("ifName", &record, &value);
    EXPECT_EQ(value, 0u);

    EXPECT_EQ(CALL(QOS_TLM_IsThresholdQueueStat)(&record, &request_, &value), 1u) << "none is set";
    setThreshold(request_, "pass-packets", QOS_TLM_OP_GREATER, 100);
    for (const uint32_t passes : {0u, 1u}) {  // the value goes out only when it passes
        request_.thresholds[0].op = passes ? QOS_TLM_OP_EQUAL : QOS_TLM_OP_GREATER;
        value = 77;
        EXPECT_EQ(CALL(QOS_TLM_IsThresholdQueueStat)(&record, &request_, &value), passes);
        EXPECT_EQ(value, passes ? 100u : 77u);
        value = 77;
        EXPECT_EQ(CALL(QOS_TLM_CheckQueueStat)(0, &record, &request_, &value), passes);
        EXPECT_EQ(value, passes ? 100u : 77u);
    }
    const auto selfDefined = CALL(QOS_TLM_IsSelfDefEvtQueueStat);
    request_.selfDefPeriod = request_.redundantPeriod = 10;  // periodCheck and suppressRedundant are not asked
    EXPECT_EQ(selfDefined(&record, &request_, &value), 0u);
    platform.nowMs += 11'000;
    EXPECT_EQ(selfDefined(&record, &request_, &value), 1u);
    platform.nowMs += 11'000;
    request_.thresholds[0].op = QOS_TLM_OP_LESS;
    EXPECT_EQ(selfDefined(&record, &request_, &value), 0u);
    EXPECT_EQ(CALL(QOS_TLM_IsRedundantQueueStat)(&record, &request_), 0u) << "the period restarted";
    EXPECT_EQ(CALL(QOS_TLM_IsRedundantQueueStat)(&record, &request_), 1u);

    request_.thresholdNum = 0;
    uint32_t count = 126;
    EXPECT_EQ(CALL(QOS_TLM_IsQueueStatRecordCntOver)(&record, &count), 0u);
    EXPECT_EQ(CALL(QOS_TLM_IsQueueStatRecordCntOver)(&record, &count), 1u);
    EXPECT_EQ(count, 128u);
    record = {2, "eth0", 10, 0, 0, 0, 0, 0, 0, 0, 0};  // the same key, 26
    for (const uint32_t previous : {0u, 1u, 2u}) {
        EXPECT_EQ(CALL(QOS_TLM_IsSentQueueStat)(previous, &record), previous == 1 ? 1u : 0u);
        EXPECT_EQ(CALL(QOS_TLM_CheckQueueStat)(previous, &record, &request_, &value), previous == 1 ? 0u : 1u);
    }
    EXPECT_EQ(CALL(QOS_TLM_InitQueueStatQueryFlag)(), 1u);
    EXPECT_EQ(CALL(QOS_HashFind)(3, 26), 1u) << "a pass that goes on keeps its keys";
    EXPECT_EQ(CALL(QOS_TLM_InitQueueStatQueryFlag)(), 0u);
    EXPECT_EQ(CALL(QOS_HashFind)(3, 26), 0u);
    record.ifIndex = 0x20000000;  // times 8 wraps
    CALL(QOS_TLM_IsQueueStatRecordCntOver)(&record, &count);
    EXPECT_EQ(CALL(QOS_HashFind)(3, 10), 1u);
}

TEST_F(QueueStatTest, StepsRefuseNull) {
    const auto* const request = &request_;
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

TEST_F(QueueStatTest, FailedStepsLeaveNullBehind) {
    QosTlmQueueStat record{};
    auto* const stale = reinterpret_cast<QosTlmNode*>(&record);
    for (const uint32_t nth : {1u, 2u, 3u, 4u}) {
        for (const uint32_t type : {0u, 1u}) {
            QosTlmNode* root = stale;
            QosTlmNode* list = stale;
            fake::failCall("NIVEX_AllocBuff", nth);
            const uint32_t failed = CALL(QOS_TLM_GetQueueStatStartNode)(type, &root, &list);
            EXPECT_EQ(failed, type == 0 && nth > 2 ? 0u : 1u);
            EXPECT_TRUE(failed == 0 || (root == nullptr && list == nullptr));
            CALL(QOS_TLM_ReleaseNode)(root);
        }
    }
    EXPECT_EQ(fake::takeLog().size(), 6u);
    for (const char* function : {"db_create_qos_tlm_queue_stat_obj", "db_create_root_iter"}) {
        void* object = &record;
        void* iterator = &record;
        fake::failCall(function, 1, 5);
        EXPECT_EQ(CALL(QOS_TLM_GetQueueStatIter)(&object, &iterator), 1u);
        EXPECT_TRUE(object == nullptr && iterator == nullptr);
    }
    EXPECT_LOG("[Tlm GetQueueStatIter] create obj failed, ret=5.",
               "[Tlm GetQueueStatIter] create rootIterator failed, ret=5.");
    const Tree list = makeTree("list", 1);
    fake::failCall("NIVEX_AllocBuff", 4);  // behind the entry, the name and its text
    EXPECT_EQ(CALL(QOS_TLM_GetQueueStatDataNode)(list.get(), &record), 1u);
    EXPECT_LOG("[TLM AddChildUint32] malloc failed.");
    EXPECT_EQ(fake::liveBlocks(), 1u + 1 + 2 + 8) << "the leaves after the failed one are added all the same";
}

}  // namespace
