#include <cstring>

#include "nivex_qos/log.h"
#include "nivex_qos/tracking.h"
#include "platform/host_framework.h"

QosTlmHashNode g_qosTlmHashData[QOS_TLM_FAMILY_NUM][QOS_TLM_HASH_BUCKET_NUM] = {};

namespace {

constexpr uint32_t kFanOut = 4;  // children of a trie node, two bits of the hash a level

// A chain node with two more ways to it. A table is walked in the same order in every call of a pass, so the key asked
// for is nearly always the one sent after the last one found. When rows came, went or moved in between, a trie of the
// keys' hashes answers; a pass over n rows asks n times per call, and chains alone would make it cubic.
struct SentKey {
    QosTlmHashNode node;
    SentKey* nextSent;
    SentKey* children[kFanOut];
};

struct SentKeys {
    SentKey* root;
    SentKey* first;
    SentKey* last;
    SentKey* expected;  // the key that should be asked for next; null: the first one
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

QosTlmHashNode& bucketOf(uint32_t familyIndex, uint32_t key) {
    return g_qosTlmHashData[familyIndex][key % QOS_TLM_HASH_BUCKET_NUM];
}

}  // namespace

void QOS_HashInsert(uint32_t familyIndex, uint32_t key) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return;
    }
    auto* added = static_cast<SentKey*>(NIVEX_AllocBuff(sizeof(SentKey)));
    if (added == nullptr) {
        QOS_TLM_DiagErr("[Tlm HashInsert] alloc buff failed.");
        return;
    }
    memset(added, 0, sizeof *added);
    added->node.key = key;

    QosTlmHashNode& bucket = bucketOf(familyIndex, key);
    added->node.next = bucket.next;
    bucket.next = &added->node;

    SentKeys& sent = sentKeys[familyIndex];
    if (SentKey** place = placeOf(sent, key); *place == nullptr) {
        *place = added;
    }
    (sent.last == nullptr ? sent.first : sent.last->nextSent) = added;
    sent.last = added;
}

uint32_t QOS_HashFind(uint32_t familyIndex, uint32_t key) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return 0;
    }
    SentKeys& sent = sentKeys[familyIndex];
    const SentKey* found = sent.expected != nullptr ? sent.expected : sent.first;
    if (found == nullptr || found->node.key != key) {
        found = *placeOf(sent, key);
        if (found == nullptr) {
            return 0;
        }
    }
    sent.expected = found->nextSent;
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
