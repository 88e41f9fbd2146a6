#include <cstdlib>
#include <cstring>

#include "nivex_qos/log.h"
#include "nivex_qos/tracking.h"
#include "platform/host_framework.h"

QosTlmHashNode g_qosTlmHashData[QOS_TLM_FAMILY_NUM][QOS_TLM_HASH_BUCKET_NUM] = {};

namespace {

// A pass over n rows asks for each sent key in each of its calls, which chains alone make cubic. So the keys of the
// chains that were asked for also stand in a tree of their bits: no keys make it deep, and neighbours, as the keys of a
// table's rows are, share a leaf.
//
// The chains are everybody's to see, and so to change. Before a chain is asked for, the index takes in what was put
// before the node that was its head the last time. Where that node is gone, or memory runs out, the index is dropped
// and the chain walked.

using Node = uint32_t[64];  // the numbers of its children, 0 for none; of a leaf a bit for each of 2048 keys

constexpr int kRootShift = 29;  // the root has the highest three bits of a key, each level below it six,
constexpr int kLeafShift = 11;  // down to the leaves
constexpr uint32_t kLevels = 4;

struct Index {
    Node* nodes;    // one that is empty and stands for all that are missing, the root, the others as they were made
    size_t room;    // in nodes
    uint32_t made;  // without the first two
    const QosTlmHashNode* heads[QOS_TLM_HASH_BUCKET_NUM];  // of the chains, as they were when last asked for
};

Index indexes[QOS_TLM_FAMILY_NUM];

void drop(Index& index) {
    free(index.nodes);
    index = {};
}

bool reserveKey(Index& index) {
    if (2 + index.made + kLevels <= index.room) {
        return true;
    }
    const size_t room = 8 + 2 * index.room;
    auto* nodes = static_cast<Node*>(realloc(index.nodes, room * sizeof(Node)));
    if (nodes == nullptr) {
        return false;
    }
    memset(nodes + index.room, 0, (room - index.room) * sizeof(Node));
    index.nodes = nodes;
    index.room = room;
    return true;
}

// There must be room for a key.
void add(Index& index, uint32_t key) {
    uint32_t node = 1;
    for (int shift = kRootShift; shift >= kLeafShift; shift -= 6) {
        uint32_t& child = index.nodes[node][key >> shift & 63];
        if (child == 0) {
            child = 2 + index.made++;
        }
        node = child;
    }
    index.nodes[node][key >> 5 & 63] |= 1U << (key & 31);
}

bool contains(const Index& index, uint32_t key) {
    if (index.nodes == nullptr) {
        return false;
    }
    uint32_t node = 1;
    for (int shift = kRootShift; shift >= kLeafShift; shift -= 6) {
        node = index.nodes[node][key >> shift & 63];
    }
    return (index.nodes[node][key >> 5 & 63] >> (key & 31) & 1) != 0;
}

// Whether the index now has all keys of a chain, and no others of its bucket; otherwise it is dropped.
bool update(Index& index, const QosTlmHashNode* chain, const QosTlmHashNode*& head) {
    for (const QosTlmHashNode* node = chain; node != head; node = node->next) {
        if (node == nullptr || !reserveKey(index)) {
            drop(index);
            return false;
        }
        add(index, node->key);
    }
    head = chain;
    return true;
}

}  // namespace

void QOS_HashInsert(uint32_t familyIndex, uint32_t key) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return;
    }
    auto* node = static_cast<QosTlmHashNode*>(NIVEX_AllocBuff(sizeof(QosTlmHashNode)));
    if (node == nullptr) {
        QOS_TLM_DiagErr("[Tlm HashInsert] alloc buff failed.");
        return;
    }
    const uint32_t bucket = key % QOS_TLM_HASH_BUCKET_NUM;
    QosTlmHashNode*& chain = g_qosTlmHashData[familyIndex][bucket].next;
    Index& index = indexes[familyIndex];
    if (chain == nullptr && index.heads[bucket] != nullptr) {
        drop(index);  // emptied by others, and this node may lie where the head was
    }
    memset(node, 0, sizeof *node);
    node->key = key;
    node->next = chain;
    chain = node;
}

uint32_t QOS_HashFind(uint32_t familyIndex, uint32_t key) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return 0;
    }
    const uint32_t bucket = key % QOS_TLM_HASH_BUCKET_NUM;
    const QosTlmHashNode* node = g_qosTlmHashData[familyIndex][bucket].next;
    Index& index = indexes[familyIndex];
    if (update(index, node, index.heads[bucket])) {
        return contains(index, key) ? 1 : 0;
    }
    while (node != nullptr && node->key != key) {
        node = node->next;
    }
    return node != nullptr ? 1 : 0;
}

void QOS_HashRelease(uint32_t familyIndex) {
    if (familyIndex >= QOS_TLM_FAMILY_NUM) {
        return;
    }
    drop(indexes[familyIndex]);
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
