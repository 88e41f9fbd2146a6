// What the plug-in remembers between calls, in random runs against plain models: its fast ways must answer as they do.
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "support/models.h"

using fake::platform;

namespace {

constexpr uint32_t kSeed = 7;

bool memoryRunsOut = false;

}  // namespace

// That of the whole process, the plug-in's index of sent keys included.
extern "C" [[gnu::visibility("default")]] void* realloc(void* block, size_t size) noexcept {
    void* moved = memoryRunsOut ? nullptr : malloc(size);
    if (block != nullptr && moved != nullptr) {
        memcpy(moved, block, std::min(size, malloc_usable_size(block)));
        free(block);
    }
    return moved;
}

namespace {

class TrackingTest : public StartedPluginTest, protected Dice {
  protected:
    TrackingTest() : Dice(kSeed) {}

    testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(kSeed)};
};

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

// The keys that a family has sent, oldest first.
struct SentModel {
    std::vector<uint32_t> inOrder;
    std::set<uint32_t> keys;

    void expectChains(uint32_t family) const {
        std::map<uint32_t, std::vector<uint32_t>> expected;
        std::for_each(inOrder.rbegin(), inOrder.rend(),
                      [&](uint32_t key) { expected[key % QOS_TLM_HASH_BUCKET_NUM].push_back(key); });
        for (uint32_t bucket = 0; bucket < QOS_TLM_HASH_BUCKET_NUM; ++bucket) {
            std::vector<uint32_t> chain;
            for (const QosTlmHashNode* node = GLOBAL(g_qosTlmHashData)[family][bucket].next; node; node = node->next) {
                chain.push_back(node->key);
            }
            EXPECT_EQ(chain, expected[bucket]) << "family " << family << " bucket " << bucket;
        }
    }
};

TEST_F(TrackingTest, SentKeysAreThoseOfTheChainsWhoeverChangesThem) {
    const auto [insert, find] = std::pair(CALL(QOS_HashInsert), CALL(QOS_HashFind));
    QosTlmHashNode*& chain = GLOBAL(g_qosTlmHashData)[QOS_TLM_FAMILY_QUEUE][5].next;
    const auto put = [&](uint32_t key) {
        chain = new (NIVEX_AllocBuff(sizeof(QosTlmHashNode))) QosTlmHashNode{key, chain};
    };
    const auto takeOff = [&] { NIVEX_FreeBuff(std::exchange(chain, chain->next)); };
    const auto found = [&, find = find] {
        std::vector<uint32_t> keys{5, 106, 207};
        std::erase_if(keys, [&](uint32_t key) { return find(QOS_TLM_FAMILY_QUEUE, key) == 0; });
        return keys;
    };
    using Keys = std::vector<uint32_t>;
    insert(QOS_TLM_FAMILY_QUEUE, 5);
    EXPECT_EQ(found(), Keys({5}));
    put(207);
    put(106);
    EXPECT_EQ(found(), Keys({5, 106, 207}));
    takeOff();
    EXPECT_EQ(found(), Keys({5, 207}));
    takeOff();
    takeOff();
    EXPECT_EQ(found(), Keys());
    put(5);
    EXPECT_EQ(found(), Keys({5}));
    takeOff();
    insert(QOS_TLM_FAMILY_QUEUE, 106);  // likely in the block of 5
    EXPECT_EQ(found(), Keys({106}));
}

TEST_F(TrackingTest, SentKeysAreThoseInserted) {
    struct Table {
        std::vector<uint32_t> rows;
        size_t position = 0;
        uint32_t room = 0;
        bool asks = false;
        SentModel sent;
    } tables[QOS_TLM_FAMILY_NUM];
    const auto makeKey = [&] {
        const uint32_t keys[] = {below(2000), below(300) * 101 + (below(8) << 29), below(60) * 8 + below(8),
                                 below(1ull << 32), 1 - below(3)};
        return keys[below(5)];
    };
    const auto [insert, find] = std::pair(CALL(QOS_HashInsert), CALL(QOS_HashFind));
    uint32_t found = 0;
    uint32_t passes = 0;
    for (uint32_t step = 0; step < 500'000 && !HasFailure(); ++step) {
        const uint32_t family = below(QOS_TLM_FAMILY_NUM);  // their passes go on side by side
        auto& [rows, position, room, asks, sent] = tables[family];
        if (position == rows.size()) {  // another pass
            const size_t others = fake::liveBlocks() - sent.inOrder.size();
            sent.expectChains(family);
            sent = {};
            CALL(QOS_HashRelease)(family);
            sent.expectChains(family);
            EXPECT_EQ(fake::liveBlocks(), others);
            room = 0;
            ++passes;
        }
        if (room == 0) {  // another call
            rearrange(rows, makeKey);
            position = 0;
            room = 1 + below(64);
            asks = !sent.keys.empty() && below(8) != 0;  // the first call of a pass has nothing to ask for
            memoryRunsOut = below(4) == 0;
            platform.calls.clear();
            platform.allocSizes.clear();
        }
        const uint32_t key = below(50) == 0 ? makeKey() : rows[position++];
        const bool known = sent.keys.count(key) != 0;
        if (asks) {
            EXPECT_EQ(find(family, key), known ? 1u : 0u) << "step " << step << " family " << family << " key " << key;
            found += known;
        }
        if (!asks || !known || below(100) == 0) {
            const bool fails = below(200) == 0;
            if (fails) {
                fake::failCall("NIVEX_AllocBuff", 1);
            } else {
                sent.inOrder.push_back(key);
                sent.keys.insert(key);
            }
            insert(family, key);
            EXPECT_EQ(fake::takeLog().size(), fails ? 1u : 0u);
            --room;
        }
    }
    memoryRunsOut = false;
    insert(QOS_TLM_FAMILY_NUM, 1);
    EXPECT_EQ(find(QOS_TLM_FAMILY_NUM, 1), 0u);
    EXPECT_GT(found, 100'000u);
    EXPECT_GT(passes, 200u);
}

TEST_F(TrackingTest, HistoryAndPeriodAreThoseOfTheFirst256Keys) {
    for (uint32_t load = 0; load < 40 && !HasFailure(); ++load) {
        reload();
        platform.quick = true;
        MemoryModel model;
        const auto [redundant, overPeriod] = std::pair(CALL(QOS_TLM_IsRedundantData), CALL(QOS_TLM_IsOverPeriod));
        std::vector<uint32_t> keys(std::array{20u, 255u, 256u, 257u, 400u}[load % 5]);
        const uint32_t stride = std::array{1u, 8u, 256u, 0x9E3779B1u}[load % 4];
        std::generate(keys.begin(), keys.end(), [&, key = 0u]() mutable { return key += stride; });
        std::shuffle(keys.begin(), keys.end(), random_);
        uint32_t sum = 0;
        for (size_t step = 0, position = 0; step < 10'000 && !HasFailure(); ++step) {
            // Mostly in order, as a table is walked.
            position = below(16) == 0 ? below(keys.size()) : (position + below(2)) % keys.size();
            const uint32_t key = below(20) == 0 ? 0 : keys[position];
            const uint32_t sub = below(2) == 0 ? below(2) : below(10);
            const uint32_t family = below(2) == 0 ? below(2) : below(12);
            if (below(10) == 0) {
                platform.nowMs += below(20'000) - 5000ull;
            } else if (below(100) == 0) {
                platform.nowMs = std::array{(0xFFFFFFF8ull + below(16)) * 1000, 1'700'000'000'000ull}[below(2)];
            }
            const uint64_t digest = std::array{0ull, 1ull, 1ull << 63, ~0ull}[below(4)];
            const uint32_t period = std::array{0u, 1u, 10u, 60u, 0xFFFFFFFEu, 0xFFFFFFFFu}[below(6)];
            const bool change = below(2) == 0;
            const uint32_t expected =
                change ? model.isRedundant(key, sub, digest, family) : model.isOverPeriod(key, sub, family, period);
            EXPECT_EQ(change ? redundant(key, sub, digest, family) : overPeriod(key, sub, family, period), expected)
                << "load " << load << " step " << step << (change ? ": change" : ": period") << " of key " << key
                << " sub-index " << sub << " family " << family;
            sum += expected;
        }
        EXPECT_GT(sum, 1000u);
        model.expectSame();
    }
}

}  // namespace
