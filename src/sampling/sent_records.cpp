#include <new>

#include "nivex_qos/log.h"
#include "nivex_qos/tracking.h"
#include "platform/host_framework.h"

QosTlmHashNode g_qosTlmHashData[QOS_TLM_FAMILY_NUM][QOS_TLM_HASH_BUCKET_NUM] = {};

namespace {

constexpr uint32_t kFanOut = 4;      // children of a trie node, two bits of the hash a level
constexpr uint32_t kRunLength = 63;  // a run takes 320 bytes

// A pass over n rows asks for a sent key n times in each call, and chains alone would make it cubic; so there are two
// faster ways to a key. A table is walked in the same order in every call, so the key asked for is nearly always the
// one sent after the last one found: the keys stand in that order in runs, close together wherever their blocks lie.
// When rows came, went or moved in between, a trie of the keys' hashes answers; a pass of a single call makes none.

struct Run;

// A chain node.
struct SentKey {
    QosTlmHashNode node;
    Run* run;  // that it is part of
    SentKey* children[kFanOut];
};

// Keys sent one after the other. Lives in the block of the first of them.
struct Run {
    SentKey first;
    Run* next;
    uint32_t count;
    uint32_t keys[kRunLength];
};

struct SentKeys {
    Run* first;
    Run* last;
    SentKey* root;      // of the trie
    Run* expectedRun;   // the key that should be asked for next: its run, or null for the first key of all,
    uint32_t expected;  // and its place there
    bool indexed;       // the keys are in the trie
};

SentKeys sentKeys[QOS_TLM_FAMILY_NUM];

// Where a key stands in the trie, or would. The hash maps keys one to one, so a path has at most 17 nodes.
SentKey** placeOf(SentKeys& sent, uint32_t key) {
    SentKey** place = &sent.root;
    for (uint32_t hash = key * 0x9E3779B1U; *place != nullptr && (*place)->node.key != key; hash <<= 2) {
        place = &(*place)->children[hash >> 30];
    }
    return place;
}

void index(SentKeys& sent, SentKey* key) {
    if (SentKey** place = placeOf(sent, key->node.key); *place == nullptr) {
        *place = key;
    }
}

// A node of the chains, which hold nothing but sent keys.
SentKey* sentKeyOf(QosTlmHashNode* node) {
    return reinterpret_cast<SentKey*>(node);
}

SentKey* search(SentKeys& sent, const QosTlmHashNode (&buckets)[QOS_TLM_HASH_BUCKET_NUM], uint32_t key) {
    if (!sent.indexed) {
        for (const QosTlmHashNode& bucket : buckets) {
            for (QosTlmHashNode* node = bucket.next; node != nullptr; node = node->next) {
                index(sent, sentKeyOf(node));
            }
        }
        sent.indexed = true;
    }
    return *placeOf(sent, key);
}

// Whether a key is the one that is expected; if so, the one behind it is expected next.
bool isExpected(SentKeys& sent, uint32_t key) {
    if (sent.expectedRun == nullptr || (sent.expected == kRunLength && sent.expectedRun->next != nullptr)) {
        sent.expectedRun = sent.expectedRun == nullptr ? sent.first : sent.expectedRun->next;
        sent.expected = 0;
        if (sent.expectedRun == nullptr) {
            return false;
        }
        __builtin_prefetch(sent.expectedRun->next);
    }
    if (sent.expected == sent.expectedRun->count || sent.expectedRun->keys[sent.expected] != key) {
        return false;
    }
    ++sent.expected;
    return true;
}

void expectAfter(SentKeys& sent, const SentKey& found) {
    sent.expectedRun = found.run;
    sent.expected = 0;
    while (found.run->keys[sent.expected++] != found.node.key) {
    }
}

}  // namespace

void QOS_HashInsert(uint32_t familyIndex, uint32_t key) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return;
    }
    SentKeys& sent = sentKeys[familyIndex];
    const bool startsRun = sent.last == nullptr || sent.last->count == kRunLength;
    void* block = NIVEX_AllocBuff(startsRun ? sizeof(Run) : sizeof(SentKey));
    if (block == nullptr) {
        QOS_TLM_DiagErr("[Tlm HashInsert] alloc buff failed.");
        return;
    }
    if (startsRun) {
        auto* run = new (block) Run{};
        (sent.last == nullptr ? sent.first : sent.last->next) = run;
        sent.last = run;
    }
    QosTlmHashNode& bucket = g_qosTlmHashData[familyIndex][key % QOS_TLM_HASH_BUCKET_NUM];
    auto* added = new (block) SentKey{{key, bucket.next}, sent.last, {}};
    bucket.next = &added->node;
    sent.last->keys[sent.last->count++] = key;
    if (sent.indexed) {
        index(sent, added);
    }
}

uint32_t QOS_HashFind(uint32_t familyIndex, uint32_t key) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return 0;
    }
    SentKeys& sent = sentKeys[familyIndex];
    if (isExpected(sent, key)) {
        return 1;
    }
    const SentKey* found = search(sent, g_qosTlmHashData[familyIndex], key);
    if (found == nullptr) {
        return 0;
    }
    expectAfter(sent, *found);
    return 1;
}

void QOS_HashRelease(uint32_t familyIndex) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return;
    }
    sentKeys[familyIndex] = {};
    for (QosTlmHashNode& bucket : g_qosTlmHashData[familyIndex]) {
        QosTlmHashNode* node = bucket.next;
        while (node != nullptr) {
            QosTlmHashNode* next = node->next;
            NIVEX_FreeBuff(node);
            node = next;
        }
        bucket.next = nullptr;
    }
}
