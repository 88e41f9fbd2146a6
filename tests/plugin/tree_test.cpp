// The data tree.
#include "support/plugin.h"

using testing::ElementsAre;

namespace {

class TreeTest : public PluginTest {};

TEST_F(TreeTest, NodesAreClearedWhenMadeAndFreed) {
    {
        const Tree top = makeTree("top", 5);
        CALL(QOS_TLM_AddChildUint64)(top.get(), "n", ~0ull, 3);
        QosTlmNode plain;
        memset(&plain, 0, sizeof plain);  // padding as well
        plain.isLeaf = 1;
        plain.data.name = top->firstChild->data.name;
        plain.data.valueType = QOS_TLM_VALUE_UINT64;
        plain.data.fieldNumber = 3;
        plain.data.value = ~0ull;
        plain.data.valueLen = 8;
        EXPECT_EQ(memcmp(top->firstChild, &plain, sizeof plain), 0);
    }
    EXPECT_EQ(fake::liveBlocks(), 0u);
    EXPECT_EQ(fake::platform.uncleared, 0u);
}

TEST_F(TreeTest, NodesHoldWhatWasGivenInOrder) {
    static const char topName[] = "top";
    const Tree top = makeTree(topName, 5, 2);
    EXPECT_EQ(top->data.name, topName);
    EXPECT_THAT((std::vector<uint64_t>{top->isLeaf, top->data.fieldNumber, top->repeatType, top->data.valueType,
                                       top->data.value, top->data.valueLen}),
                ElementsAre(0, 5, 2, 0, 0, 0));
    EXPECT_TRUE(!top->next && !top->firstChild && !top->lastChild);

    EXPECT_EQ(CALL(QOS_TLM_AddChildBool)(top.get(), "a", 5, 1), 0u);
    EXPECT_EQ(CALL(QOS_TLM_AddChildUint32)(top.get(), "b", 7, 2), 0u);
    EXPECT_EQ(CALL(QOS_TLM_AddChildUint64)(top.get(), "c", ~0ull, 3), 0u);
    char text[] = "ETH1/0/";
    EXPECT_EQ(CALL(QOS_TLM_AddChildString)(top.get(), "d", text, 4), 0u);
    text[0] = 'X';
    EXPECT_EQ(CALL(QOS_TLM_AddChildString)(top.get(), "e", "", 5), 0u);
    QosTlmNode* inner = addNode(top.get(), "f", 6);

    using Leaf = std::tuple<const char*, uint32_t, uint64_t, uint32_t, const char*>;
    const QosTlmNode* node = top->firstChild;
    uint32_t expectedNumber = 0;
    for (const auto& [name, type, value, length, copy] :
         {Leaf{"a", QOS_TLM_VALUE_BOOL, 5, 1, nullptr}, Leaf{"b", QOS_TLM_VALUE_UINT32, 7, 4, nullptr},
          Leaf{"c", QOS_TLM_VALUE_UINT64, ~0ull, 8, nullptr}, Leaf{"d", QOS_TLM_VALUE_STRING, 0, 8, "ETH1/0/"},
          Leaf{"e", QOS_TLM_VALUE_STRING, 0, 1, ""}}) {
        SCOPED_TRACE(name);
        ASSERT_NE(node, nullptr);
        EXPECT_STREQ(node->data.name, name);
        EXPECT_THAT((std::vector<uint64_t>{node->isLeaf, node->data.fieldNumber, node->repeatType, node->data.valueType,
                                           node->data.valueLen}),
                    ElementsAre(1, ++expectedNumber, 0, type, length));
        if (copy != nullptr) {
            EXPECT_STREQ(textOf(*node), copy);
        } else {
            EXPECT_EQ(node->data.value, value);
        }
        EXPECT_TRUE(!node->firstChild && !node->lastChild);
        node = node->next;
    }
    EXPECT_EQ(node, inner);
    EXPECT_EQ(inner->next, nullptr);
    EXPECT_EQ(top->lastChild, inner);
    EXPECT_THAT(fake::platform.allocSizes, ElementsAre(72, 72, 72, 72, 72, 8, 72, 1, 72));
}

// What a failed allocation says, the failure injection test knows.
TEST_F(TreeTest, NullIsRefused) {
    const Tree top = makeTree("top", 5);
    EXPECT_EQ(CALL(QOS_TLM_AddChildString)(nullptr, "n", "text", 1), 1u);
    EXPECT_EQ(CALL(QOS_TLM_AddChildString)(top.get(), "n", nullptr, 1), 1u);
    EXPECT_EQ(CALL(QOS_TLM_AddChildBool)(nullptr, "n", 1, 1), 1u);
    EXPECT_EQ(CALL(QOS_TLM_AddChildUint32)(nullptr, "n", 1, 1), 1u);
    EXPECT_EQ(CALL(QOS_TLM_AddChildUint64)(nullptr, "n", 1, 1), 1u);
    EXPECT_LOG("[TLM AddChildString] para error.", "[TLM AddChildString] para error.",
               "[TLM AddChildBool] root is null.", "[TLM AddChildUint32] root is null.",
               "[TLM AddChildUint64] root is null.");
    CALL(QOS_TLM_AddChild)(top.get(), nullptr);
    CALL(QOS_TLM_AddChild)(nullptr, top.get());
    EXPECT_TRUE(!top->firstChild && !top->lastChild);
}

TEST_F(TreeTest, TextCopy) {
    uint32_t length = 99;
    EXPECT_EQ(CALL(QOS_TLM_ConvertToStr)(nullptr, &length), nullptr);
    EXPECT_EQ(length, 99u);
    for (uint32_t* out : {&length, static_cast<uint32_t*>(nullptr)}) {
        const Block copy(CALL(QOS_TLM_ConvertToStr)("abc", out));
        EXPECT_EQ(hex(copy.get(), 4), "61 62 63 00");
    }
    EXPECT_EQ(length, 3u);
    EXPECT_THAT(fake::platform.allocSizes, ElementsAre(4, 4));
}

}  // namespace
