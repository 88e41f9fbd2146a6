// The JSON writer, with cJSON's entry points replaced where a failure is wanted.
#include "nivex_qos/json.h"

#include <cmath>
#include <cstring>

#include "support/plugin.h"

using testing::ElementsAre;

namespace {

// The real entry points, behind ones that count items and texts and fail on demand.
QosTlmCjsonFuncTable real;
std::string failing;  // the entry point whose failAt-th call gives null
int failAt = 0;
int live = 0;  // documents, items outside of one, and texts
std::vector<double> numbers;

template <typename Make>
auto makeOrFail(const char* name, Make make) -> decltype(make()) {
    if (failing == name && --failAt == 0) {
        return nullptr;
    }
    ++live;
    return make();
}

void interpose() {
    QosTlmCjsonFuncTable& table = GLOBAL(g_qosTlmCjsonFunc);
    real = table;
    table.createNumber = [](double n) {
        numbers.push_back(n);
        return makeOrFail("number", [n] { return real.createNumber(n); });
    };
    table.createString = [](const char* t) { return makeOrFail("string", [t] { return real.createString(t); }); };
    table.createBool = [](int flag) {
        EXPECT_TRUE(flag == 0 || flag == 1);
        return makeOrFail("bool", [flag] { return real.createBool(flag); });
    };
    table.createObject = [] { return makeOrFail("object", real.createObject); };
    table.createArray = [] { return makeOrFail("array", real.createArray); };
    table.printUnfmt = [](const cJSON* item) { return makeOrFail("print", [=] { return real.printUnfmt(item); }); };
    table.addItemToObj = [](cJSON* object, const char* name, cJSON* item) {
        real.addItemToObj(object, name, item);
        --live;
    };
    table.addItemToArr = [](cJSON* array, cJSON* item) {
        real.addItemToArr(array, item);
        --live;
    };
    table.cjsonFree = [](void* text) { real.cjsonFree((--live, text)); };
    table.nodeFree = [](cJSON* item) { real.nodeFree((--live, item)); };
}

class JsonWriterTest : public StartedPluginTest {
  protected:
    void SetUp() override {
        StartedPluginTest::SetUp();
        interpose();
        failing.clear();
        live = 0;
        numbers.clear();
    }
    void TearDown() override {
        EXPECT_EQ(live, 0) << "cJSON memory left";
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
    numbers.clear();
    CALL(QOS_TLM_AddChildUint64)(top.get(), "m", (1ull << 53) + 1, 1);
    encode(top.get());
    EXPECT_THAT(numbers, ElementsAre(1.0, 4294967295.0, std::ldexp(1, 53), 1.0, 4294967295.0, std::ldexp(1, 53)));
}

TEST_F(JsonWriterTest, AnyFailureGivesNothingAndFreesEverything) {
    // Function, its failing call, the site that logs it (0: none), the status of the whole walk (0: it did not fail).
    using Case = std::tuple<const char*, int, uint32_t, uint32_t>;
    const Case cases[] = {{"object", 1, 0, 0},   {"object", 2, 368, 3}, {"object", 3, 368, 4}, {"object", 4, 388, 4},
                          {"object", 5, 388, 4}, {"array", 1, 400, 4},  {"number", 1, 325, 4}, {"number", 2, 325, 4},
                          {"bool", 1, 325, 4},   {"string", 2, 325, 4}, {"print", 1, 0, 0}};
    for (const auto& [function, nth, site, status] : cases) {
        for (const bool estimate : {false, true}) {
            SCOPED_TRACE(testing::Message() << function << " " << nth << " " << estimate);
            reload();
            const Tree top = makeTree("qos", 0);
            QosTlmNode* list = addNode(addNode(top.get(), "container", 1), "list", 1, QOS_TLM_REPEAT_LIST);
            for (int i = 0; i < 2; ++i) {
                QosTlmNode* entry = addNode(list, "entry", 1, QOS_TLM_REPEAT_ENTRY);
                CALL(QOS_TLM_AddChildUint32)(entry, "n", 1, 1);
                CALL(QOS_TLM_AddChildUint64)(entry, "m", 1, 1);
                CALL(QOS_TLM_AddChildBool)(entry, "b", 1, 1);
                CALL(QOS_TLM_AddChildString)(entry, "s", "text", 1);
            }
            std::vector<std::string> log;
            if (site != 0) {
                log.push_back(encodeLine(3, 0, site));
            }
            if (status != 0 && !estimate) {
                log.insert(log.end(), {"[Tlm EncodeJson] wrap json failed.", encodeLine(3, status, 472)});
            } else if (status == 0 && strcmp(function, "object") == 0) {
                log = {"[Tlm EncodeJson] create json object failed.", encodeLine(3, 0, 465)};
                if (estimate) {
                    log = {encodeLine(3, 0, 483)};
                }
            }
            failing = function;
            failAt = nth;
            uint32_t length = 99;
            if (estimate) {
                EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSizeJson)(top.get()), 0u);
            } else {
                EXPECT_EQ(CALL(QOS_TLM_EncodeJson)(top.get(), &length), nullptr);
            }
            EXPECT_EQ(failAt, 0) << "nothing failed";
            EXPECT_EQ(length, 99u);
            EXPECT_EQ(fake::takeLog(), log);
        }
    }
}

TEST_F(JsonWriterTest, PrintAndCopyMayFail) {
    const Tree top = makeTree("t", 1);
    const auto print = CALL(QOS_TLM_EncodeJsonUnformatted);
    uint32_t length = 99;
    fake::failCall("NIVEX_AllocBuff", 1);
    EXPECT_EQ(CALL(QOS_TLM_EncodeJson)(top.get(), &length), nullptr);
    EXPECT_LOG(encodeLine(2, 9, 423));
    fake::failCall("strcpy_s", 1);
    EXPECT_EQ(print(CALL(QOS_TLM_CreateCjsonObject)(), &length), nullptr);
    EXPECT_LOG(encodeLine(6, 3, 429));
    failing = "print";
    failAt = 1;
    EXPECT_EQ(print(CALL(QOS_TLM_CreateCjsonObject)(), &length), nullptr);
    EXPECT_EQ(print(nullptr, &length), nullptr);
    EXPECT_EQ(length, 99u);
    EXPECT_EQ(live, 0);

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
