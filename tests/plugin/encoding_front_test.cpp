// The encoding front: validation, choice of the encoder, the throttled status log.
#include "nivex_qos/encode.h"

#include "nivex_qos/gpb.h"
#include "nivex_qos/json.h"
#include "support/plugin.h"

namespace {

class EncodingFrontTest : public StartedPluginTest {};

TEST_F(EncodingFrontTest, SizesTreesAndRefusesNullAndUnknownTypes) {
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
    EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSize)(top.get(), QOS_TLM_ENCODE_GPB), 4u);
    EXPECT_EQ(CALL(QOS_TLM_EstimatePackageSize)(top.get(), QOS_TLM_ENCODE_JSON), 24u);
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

}  // namespace
