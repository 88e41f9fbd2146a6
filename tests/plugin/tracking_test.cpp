// What the plug-in remembers between calls: sent keys, digests, times.
#include "nivex_qos/tracking.h"

#include "support/plugin.h"

using testing::ElementsAre;

namespace {

class TrackingTest : public PluginTest {
  protected:
    static void setSeconds(uint64_t seconds) { fake::platform.nowMs = seconds * 1000; }
    static uint32_t overPeriod(uint32_t key, uint32_t sub, uint32_t family, uint32_t period) {
        return CALL(QOS_TLM_IsOverPeriod)(key, sub, family, period);
    }
    static uint32_t redundant(uint32_t key, uint32_t sub, uint64_t digest, uint32_t family) {
        return CALL(QOS_TLM_IsRedundantData)(key, sub, digest, family);
    }
    static std::vector<uint32_t> chainOf(uint32_t family, uint32_t bucket) {
        std::vector<uint32_t> keys;
        for (const QosTlmHashNode* node = GLOBAL(g_qosTlmHashData)[family][bucket].next; node; node = node->next) {
            keys.push_back(node->key);
        }
        return keys;
    }
};

TEST_F(TrackingTest, SentKeysPerFamily) {
    const auto insert = CALL(QOS_HashInsert);
    const auto find = CALL(QOS_HashFind);
    for (const uint32_t key : {5u, 5u, 1u, 102u, 203u, 0u, 0xFFFFFFFFu}) {
        insert(3, key);
        EXPECT_EQ(find(3, key), 1u) << key;
    }
    insert(8, 1);
    EXPECT_EQ(fake::liveBlocks(), 8u);
    EXPECT_THAT(chainOf(3, 1), ElementsAre(203, 102, 1)) << "the newest first";
    EXPECT_THAT(chainOf(3, 5), ElementsAre(5, 5));
    EXPECT_THAT(chainOf(3, 0xFFFFFFFF % 101), ElementsAre(0xFFFFFFFF));
    EXPECT_EQ(find(3, 304), 0u) << "the bucket of 1, another key";
    EXPECT_EQ(find(8, 5), 0u);
    fake::failCall("NIVEX_AllocBuff", 1);
    insert(3, 77);
    EXPECT_EQ(find(3, 77), 0u);
    EXPECT_LOG("[Tlm HashInsert] alloc buff failed.");

    CALL(QOS_HashRelease)(3);
    EXPECT_EQ(find(3, 5), 0u);
    EXPECT_EQ(find(8, 1), 1u);
    EXPECT_EQ(fake::liveBlocks(), 1u);
    for (uint32_t bucket = 0; bucket < QOS_TLM_HASH_BUCKET_NUM; ++bucket) {
        EXPECT_THAT(chainOf(3, bucket), ElementsAre());
    }
    for (const uint32_t family : {9u, 0xFFFFFFFFu}) {
        insert(family, 1);
        EXPECT_EQ(find(family, 1), 0u);
        CALL(QOS_HashRelease)(family);
    }
    EXPECT_EQ(fake::liveBlocks(), 1u);
}

TEST_F(TrackingTest, Digest) {
    uint64_t digest = 0;
    const auto fold = CALL(QOS_TLM_IntegerHash);
    fold(&digest, 1);
    EXPECT_EQ(digest, 1u);
    fold(&digest, 2);
    EXPECT_EQ(digest, 514u);
    digest = 0x8000000000000001;
    fold(&digest, 0);
    EXPECT_EQ(digest, 0x300u) << "rotated, not shifted";
    fold(nullptr, 1);
}

TEST_F(TrackingTest, ChangeTest) {
    EXPECT_EQ(redundant(7, 0, 42, 1), 0u);
    EXPECT_EQ(redundant(7, 0, 42, 1), 1u);
    EXPECT_EQ(redundant(7, 0, 43, 1), 0u);
    EXPECT_EQ(redundant(7, 0, 43, 1), 1u);
    EXPECT_EQ(redundant(7, 1, 43, 1), 0u) << "another sub-index";
    EXPECT_EQ(redundant(7, 0, 43, 2), 0u) << "another family";
    EXPECT_EQ(redundant(8, 0, 43, 1), 0u) << "another key";
    EXPECT_EQ(redundant(7, 7, 1, 9), 0u);
    EXPECT_EQ(redundant(7, 7, 1, 9), 1u) << "the last cell";
    EXPECT_EQ(redundant(7, 3, 0, 3), 1u) << "a cell never set holds 0";
    EXPECT_EQ(GLOBAL(g_qosTlmHisData)[0].digest[0][1], 43u);
    EXPECT_EQ(GLOBAL(g_qosTlmHisData)[1].key, 8u);
}

TEST_F(TrackingTest, PeriodTest) {
    setSeconds(1000);
    EXPECT_EQ(overPeriod(7, 0, 1, 10), 0u) << "first sight";
    EXPECT_EQ(overPeriod(7, 3, 2, 10), 1u) << "the key is known, the cell never set";
    setSeconds(1010);
    EXPECT_EQ(overPeriod(7, 0, 1, 10), 0u) << "exactly the period";
    setSeconds(1011);
    EXPECT_EQ(overPeriod(7, 0, 1, 10), 1u);
    EXPECT_EQ(GLOBAL(g_qosTlmStatTime)[0].time[0][1], 1011u);
    setSeconds(1021);
    EXPECT_EQ(overPeriod(7, 0, 1, 10), 0u) << "restarted at 1011";
    EXPECT_EQ(overPeriod(7, 0, 1, 9), 1u);
    EXPECT_EQ(overPeriod(7, 0, 1, 0), 0u) << "the same second";
    setSeconds(1022);
    EXPECT_EQ(overPeriod(7, 0, 1, 0), 1u) << "a later second";
    setSeconds(1021);
    EXPECT_EQ(overPeriod(7, 0, 1, 0xFFFFFFFE), 1u) << "set back: the difference wraps";
    setSeconds(0xFFFFFFFE);
    EXPECT_EQ(overPeriod(9, 0, 1, 5), 0u);
    setSeconds(0x100000003);
    EXPECT_EQ(overPeriod(9, 0, 1, 5), 0u) << "5 seconds over the wrap";
    setSeconds(0x100000004);
    EXPECT_EQ(overPeriod(9, 0, 1, 5), 1u);
}

}  // namespace
