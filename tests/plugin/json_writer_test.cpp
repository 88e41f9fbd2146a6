// The JSON writer.
#include "nivex_qos/json.h"

#include "nivex_qos/encode.h"

#include "support/plugin.h"

namespace {

class JsonWriterTest : public StartedPluginTest {
  protected:
    void SetUp() override {
        StartedPluginTest::SetUp();
        fake::watchCjson(GLOBAL(g_qosTlmCjsonHandle), GLOBAL(g_qosTlmCjsonFunc));
    }
    void TearDown() override {
        EXPECT_EQ(fake::liveCjsonBlocks(), 0u);
        StartedPluginTest::TearDown();
    }
    static std::string encode(const QosTlmNode* top) {
        uint32_t length = 0;
        const Block text(CALL(QOS_TLM_EncodeJson)(top, &length));
        EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSizeJson)(top), length);
        return std::string(static_cast<char*>(text.get()), length);
    }
};

TEST_F(JsonWriterTest, GoldenTexts) {
    {
        const Tree top = makeTree("qos", 0);
        QosTlmNode* list = addNode(addNode(addNode(top.get(), "global-query", 5), "queue-statisticss", 13),
                                   "queue-statistics", 1, QOS_TLM_REPEAT_LIST);
        QosTlmNode* entry = addNode(list, "queue-statistics", 1, QOS_TLM_REPEAT_ENTRY);
        CALL(QOS_TLM_AddChildUint32)(entry, "service-class", 3, 2);
        CALL(QOS_TLM_AddChildUint64)(entry, "pass-packets", 100, 3);
        EXPECT_EQ(encode(top.get()), R"({"qos":{"global-query":{"queue-statisticss":{"queue-statistics":)"
                                     R"([{"service-class":3,"pass-packets":100}]}}}})");
    }
    const Tree top = makeTree("t", 1);
    CALL(QOS_TLM_AddChildBool)(top.get(), "yes", 5, 1);
    CALL(QOS_TLM_AddChildBool)(top.get(), "no", 0, 1);
    CALL(QOS_TLM_AddChildString)(top.get(), "empty", "", 1);
    CALL(QOS_TLM_AddChildString)(top.get(), "escaped", "a\"\\\n", 1);
    addNode(top.get(), "object", 1);
    addNode(top.get(), "array", 1, QOS_TLM_REPEAT_LIST);
    CALL(QOS_TLM_AddChildUint32)(addNode(top.get(), "left out", 1, 3), "n", 1, 1);
    QosTlmNode* list = addNode(top.get(), "list", 1, QOS_TLM_REPEAT_LIST);
    for (const uint32_t value : {1u, 0xFFFFFFFFu}) {
        CALL(QOS_TLM_AddChildUint32)(addNode(list, "nowhere", 1, QOS_TLM_REPEAT_ENTRY), "n", value, 1);
    }
    EXPECT_EQ(encode(top.get()), R"({"t":{"yes":true,"no":false,"empty":"","escaped":"a\"\\\n","object":{},"array":[],)"
                                 R"("list":[{"n":1},{"n":4294967295}]}})");
    const Tree number = makeTree("t", 1);
    CALL(QOS_TLM_AddChildUint64)(number.get(), "m", (1ull << 53) + 1, 1);
    EXPECT_EQ(encode(number.get()), R"({"t":{"m":9.00719925474099e+15}})") << "cJSON gives 15 digits";
}

// What a failed encoding says, the failure injection test knows.
TEST_F(JsonWriterTest, PartsOneByOne) {
    const Tree top = makeTree("t", 1);
    for (const uint32_t nth : {1u, 2u}) {
        fake::failCall("cJSON_CreateObject", nth);
        EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSizeJson)(top.get()), 0u);
        EXPECT_LOG(encodeLine(3, 0, nth == 1 ? 483 : 368));
    }
    const auto print = CALL(QOS_TLM_EncodeJsonUnformatted);
    uint32_t length = 99;
    EXPECT_EQ(print(nullptr, &length), nullptr);
    EXPECT_EQ(length, 99u);
    cJSON* object = CALL(QOS_TLM_CreateCjsonObject)();
    const QosTlmNodeData unknown{"n", 4, 1, 1, 4};
    EXPECT_EQ(CALL(QOS_TLM_WrapJsonLeaf)(&unknown, object), 3u);
    const QosTlmNodeData flag{"f", QOS_TLM_VALUE_BOOL, 1, 2, 1};
    EXPECT_EQ(CALL(QOS_TLM_WrapJsonLeaf)(&flag, object), 0u);
    const Tree list = makeTree("l", 1, QOS_TLM_REPEAT_LIST);
    list->next = makeTree("sibling", 1).release();
    EXPECT_EQ(CALL(QOS_TLM_DealRepeatNode)(list.get(), object), 0u) << "one node, not its siblings";
    EXPECT_EQ(CALL(QOS_TLM_WrapJsonRecursive)(nullptr, object), 0u);
    EXPECT_EQ(CALL(QOS_TLM_WrapJsonRecursive)(list->next, object), 0u);
    const Block text(print(object, &length));
    EXPECT_STREQ(static_cast<char*>(text.get()), R"({"f":true,"l":[],"sibling":{}})");
    EXPECT_EQ(length, 30u);
}

}  // namespace
