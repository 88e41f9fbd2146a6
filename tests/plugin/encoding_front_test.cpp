// The encoding front: validation, choice of the encoder, the throttled status log; and both encoders on random trees.
#include "nivex_qos/encode.h"

#include <google/protobuf/unknown_field_set.h>

#include <random>

#include "nivex_qos/gpb.h"
#include "nivex_qos/json.h"
#include "support/plugin.h"
#include "support/sample_reader.h"

namespace {

class EncodingFrontTest : public StartedPluginTest {};

TEST_F(EncodingFrontTest, PicksTheEncoder) {
    const Tree top = makeTree("global-query", 5);
    CALL(QOS_TLM_AddChildUint32)(top.get(), "n", 3, 2);
    const auto encode = CALL(QOS_TLM_Encoding);
    uint32_t length = 99;
    for (const uint32_t type : {0u, 1u, 2u, 256u, 0xFFFFFFFFu}) {
        EXPECT_EQ(encode(nullptr, type, &length), nullptr);
        EXPECT_EQ(encode(top.get(), type, nullptr), nullptr);
        EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSize)(nullptr, type), 0u);
        if (type > 1) {
            EXPECT_EQ(encode(top.get(), type, &length), nullptr);
            EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSize)(top.get(), type), 0u);
        }
    }
    EXPECT_EQ(length, 99u);
    const Block gpb(encode(top.get(), QOS_TLM_ENCODE_GPB, &length));
    EXPECT_EQ(hex(gpb.get(), length), "2A 02 10 03");
    const Block json(encode(top.get(), QOS_TLM_ENCODE_JSON, &length));
    EXPECT_STREQ(static_cast<char*>(json.get()), R"({"global-query":{"n":3}})");
    EXPECT_EQ(length, 24u);

    const auto& table = GLOBAL(g_qosTlmEncodeFunc);
    EXPECT_EQ(table[0].encode, CALL(QOS_TLM_EncodeProto));
    EXPECT_EQ(table[0].estimate, CALL(QOS_TLM_EstimatePackageSizeProto));
    EXPECT_EQ(table[1].encode, CALL(QOS_TLM_EncodeJson));
    EXPECT_EQ(table[1].estimate, CALL(QOS_TLM_EstimatePackageSizeJson));
}

TEST_F(EncodingFrontTest, RefusesNodesWithoutNameOrText) {
    using Spoil = void (*)(QosTlmNode & top, QosTlmNode & inner, QosTlmNode & text);
    const Spoil spoils[] = {
        [](QosTlmNode& top, QosTlmNode&, QosTlmNode&) { top.data.name = nullptr; },
        [](QosTlmNode&, QosTlmNode& inner, QosTlmNode&) { inner.data.name = nullptr; },
        [](QosTlmNode&, QosTlmNode&, QosTlmNode& text) { text.data.name = nullptr; },
        [](QosTlmNode&, QosTlmNode&, QosTlmNode& text) {
            NIVEX_FreeBuff(const_cast<char*>(textOf(text)));
            text.data.value = 0;
        },
        [](QosTlmNode& top, QosTlmNode&, QosTlmNode&) { top.next = CALL(QOS_TLM_CreateNode)(nullptr, 1, 0); },
    };
    for (const Spoil spoil : spoils) {
        for (const uint32_t type : {0u, 1u}) {
            reload();
            const Tree top = makeTree("top", 5);
            QosTlmNode* inner = addNode(top.get(), "inner", 13);
            CALL(QOS_TLM_AddChildUint32)(inner, "first", 1, 1);
            CALL(QOS_TLM_AddChildString)(inner, "text", "eth0", 2);
            CALL(QOS_TLM_AddChildUint32)(top.get(), "last", 1, 1);
            EXPECT_EQ(CALL(QOS_TLM_ValidateTree)(top.get()), 0u);
            spoil(*top, *inner, *inner->lastChild);
            EXPECT_EQ(CALL(QOS_TLM_ValidateTree)(top.get()), 1u);
            uint32_t length = 99;
            EXPECT_EQ(CALL(QOS_TLM_Encoding)(top.get(), type, &length), nullptr);
            EXPECT_EQ(length, 99u);
            EXPECT_LOG("[Tlm Encoding] validate tree failed, ret=1.", encodeLine(1, 0, 530));
        }
    }
    EXPECT_EQ(CALL(QOS_TLM_ValidateTree)(nullptr), 0u);
}

TEST_F(EncodingFrontTest, StatusLogIsThrottledPerStatusAndSite) {
    const auto log = CALL(QOS_TLM_LogEncode);
    const std::string line = encodeLine(2, 100, 261);
    const auto repeat = [&](int calls, uint32_t site) {
        while (calls-- > 0) {
            log(QOS_TLM_ENC_MALLOC_FAIL, 100, site);
        }
    };
    repeat(600, 261);
    EXPECT_LOG(line);
    repeat(1, 261);
    EXPECT_LOG(line) << "the 601st";
    repeat(599, 261);
    log(QOS_TLM_ENC_SAFE_FUNC_FAIL, ~0ull, 179);
    EXPECT_LOG(encodeLine(6, ~0ull, 179)) << "another status does not count";
    repeat(1, 261);
    EXPECT_LOG(line) << "the 1201st";
    repeat(300, 261);
    repeat(1, 290);
    repeat(1, 261);
    EXPECT_LOG(encodeLine(2, 100, 290), line);
    repeat(599, 261);
    EXPECT_LOG() << "another site starts the count anew";
    repeat(1, 261);
    EXPECT_LOG(line);

    for (const uint32_t status : {0u, 8u, 0xFFFFFFFFu}) {
        log(status, 1, 261);
    }
    for (const uint32_t status : {1u, 3u, 4u, 5u, 7u}) {
        log(status, status, 1000);
        EXPECT_LOG(encodeLine(status, status, 1000));
    }
}

// Random trees, read back by a protocol-buffers library and a JSON parser.
void grow(std::mt19937_64& random, QosTlmNode* node, int depth) {
    static constexpr const char* kNames[] = {"a", "bb", "c-c", "d \"quoted\"", "e\\", "f/", "g\n", "h"};
    static constexpr uint32_t kNumbers[] = {1, 15, 16, 73, 2047, 2048, 5, (1u << 29) - 1};
    const bool inList = node->repeatType == QOS_TLM_REPEAT_LIST;
    const size_t children = 1 + random() % std::size(kNames);
    for (size_t i = 0; i < children; ++i) {
        const char* name = kNames[i];
        const uint32_t number = kNumbers[random() % std::size(kNumbers)];
        const uint64_t value = random() >> (random() % 64);
        const auto kind = inList ? 5 : random() % (depth > 0 ? 6 : 4);
        if (kind == 0) {
            CALL(QOS_TLM_AddChildBool)(node, name, static_cast<uint32_t>(value), number);
        } else if (kind == 1) {
            CALL(QOS_TLM_AddChildUint32)(node, name, static_cast<uint32_t>(value), number);
        } else if (kind == 2) {
            CALL(QOS_TLM_AddChildUint64)(node, name, value, number);
        } else if (kind == 3) {
            CALL(QOS_TLM_AddChildString)(node, name, std::string(value % 300, '"').c_str(), number);
        } else {
            const auto type = inList ? QOS_TLM_REPEAT_ENTRY : kind == 4 ? QOS_TLM_REPEAT_NONE : QOS_TLM_REPEAT_LIST;
            grow(random, addNode(node, name, number, type), depth - 1);
        }
    }
}

void expectMessage(const std::string& bytes, const QosTlmNode* node) {
    google::protobuf::UnknownFieldSet fields;
    ASSERT_TRUE(fields.ParseFromString(bytes));
    for (int i = 0; i < fields.field_count(); ++i, node = node->next) {
        ASSERT_NE(node, nullptr);
        const auto& field = fields.field(i);
        EXPECT_EQ(static_cast<uint32_t>(field.number()), node->data.fieldNumber);
        if (node->isLeaf == 0) {
            expectMessage(field.length_delimited(), node->firstChild);
        } else if (node->data.valueType == QOS_TLM_VALUE_STRING) {
            EXPECT_EQ(field.length_delimited(), textOf(*node));
        } else {
            EXPECT_EQ(field.varint(), node->data.value);
        }
    }
    EXPECT_EQ(node, nullptr);
}

nlohmann::json jsonOf(const QosTlmNode& node) {
    if (node.isLeaf != 0) {
        return node.data.valueType == QOS_TLM_VALUE_BOOL     ? nlohmann::json(node.data.value != 0)
               : node.data.valueType == QOS_TLM_VALUE_STRING ? nlohmann::json(textOf(node))
                                                             : nlohmann::json(node.data.value);
    }
    auto value = node.repeatType == QOS_TLM_REPEAT_LIST ? nlohmann::json::array() : nlohmann::json::object();
    for (const QosTlmNode* child = node.firstChild; child != nullptr; child = child->next) {
        (value.is_array() ? value.emplace_back() : value[child->data.name]) = jsonOf(*child);
    }
    return value;
}

TEST_F(EncodingFrontTest, BothEncodersWriteRandomTreesInFull) {
    std::mt19937_64 random(20240611);
    for (int round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        const Tree top = makeTree("top", 5);
        grow(random, top.get(), 3);
        uint32_t length = 0;
        fake::platform.allocSizes.clear();
        const Block gpb(CALL(QOS_TLM_Encoding)(top.get(), QOS_TLM_ENCODE_GPB, &length));
        expectMessage(std::string(static_cast<char*>(gpb.get()), length), top.get());
        EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSize)(top.get(), QOS_TLM_ENCODE_GPB), length);
        EXPECT_EQ(fake::platform.allocSizes.at(0), length);
        const Block text(CALL(QOS_TLM_Encoding)(top.get(), QOS_TLM_ENCODE_JSON, &length));
        EXPECT_TRUE(sameJson(nlohmann::json::parse(static_cast<char*>(text.get()))["top"], jsonOf(*top)));
        EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSize)(top.get(), QOS_TLM_ENCODE_JSON), length);
    }
}

}  // namespace
