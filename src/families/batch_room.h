/*
 * The room that a batch has left in the payload, for batches that end before they outgrow it.
 *
 * Entries are sized from their records, not from the tree: nothing is called and nothing logged for it.
 */
#ifndef SRC_FAMILIES_BATCH_ROOM_H
#define SRC_FAMILIES_BATCH_ROOM_H

#include <cstring>

#include "encode/varint.h"
#include "families/description.h"
#include "nivex_qos/buf_monitor_stat.h"
#include "sampling/batch_policy.h"

namespace qos {

struct Node {
    const char* name;
    uint32_t number;
};
inline constexpr Node kQosNode = {"qos", 0};
inline constexpr Node kGlobalQueryNode = {"global-query", 5};
inline constexpr uint32_t kEntryNumber = 1;

// cJSON prints whole numbers below 10^15 digit by digit; above, in whatever form takes 17 digits, with point and
// exponent.
constexpr uint32_t jsonNumberLength(uint64_t number) {
    constexpr uint64_t kLongNumber = 1000000000000000;
    constexpr uint32_t kLongNumberLength = sizeof "1.2345678901234567e+19" - 1;
    if (number >= kLongNumber) {
        return kLongNumberLength;
    }
    uint32_t length = 1;
    for (; number >= 10; number /= 10) {
        ++length;
    }
    return length;
}

// RFC 8259, 7: what must be escaped takes two characters or six.
inline uint32_t jsonTextLength(const char* text) {
    uint32_t length = 0;
    for (; *text != '\0'; ++text) {
        const bool isShort = strchr("\"\\\b\f\n\r\t", *text) != nullptr;
        length += isShort ? 2 : static_cast<uint8_t>(*text) < 0x20 ? 6 : 1;
    }
    return length;
}

constexpr uint32_t jsonNameLength(const char* name) {
    return static_cast<uint32_t>(std::string_view(name).size() + sizeof "\"\":" - 1);
}

// A leaf that shows a number, or a text of a length; in JSON with the comma behind it.
constexpr uint32_t leafSize(const Leaf& leaf, bool json, uint64_t number, uint32_t textLength) {
    if (json) {
        const uint32_t value = leaf.field.type == Type::text      ? textLength + 2
                               : leaf.field.type == Type::boolean ? sizeof "false" - 1
                                                                  : jsonNumberLength(number);
        return jsonNameLength(leaf.name) + value + 1;
    }
    return leaf.field.type == Type::text ? lengthDelimitedSize(leaf.number, textLength)
                                         : integerFieldSize(leaf.number, number);
}

// An entry whose leaves take that much; in JSON with braces, the comma behind it and none behind its last leaf.
constexpr uint32_t entrySize(bool json, uint32_t leaves) {
    return json ? leaves + 2 : lengthDelimitedSize(kEntryNumber, leaves);
}

// The largest entry that a family can have. A name may need the longest escape throughout, a time none.
constexpr uint32_t largestEntry(std::span<const Leaf> leaves, bool json) {
    constexpr uint32_t kLongestEscape = sizeof "\\u0000" - 1;
    uint32_t size = 0;
    for (const Leaf& leaf : leaves) {
        const bool isText = leaf.field.type == Type::text;
        const bool isTime = leaf.field.size == QOS_TLM_DATE_TIME_SIZE;
        const uint32_t text = (leaf.field.size - 1U) * (json && !isTime ? kLongestEscape : 1);
        size += leafSize(leaf, json, isText ? 0 : ~uint64_t{0} >> (64 - 8 * leaf.field.size), text);
    }
    return entrySize(json, size);
}

template <const auto& F>
class BatchRoom {
    using Record = typename std::remove_cvref_t<decltype(F)>::Record;

  public:
    explicit BatchRoom(bool json) : json_(json), limited_((json && F.jsonEndsByPayload) || batchesEndByPayload()) {}

    // Whether one more entry fits, however large.
    bool takesAnother() const { return !limited_ || batchSize(entries_ + kLargest[json_]) <= QOS_TLM_PAYLOAD_SIZE; }

    // An entry was added.
    void take(const Record& record) {
        if (!limited_) {
            return;
        }
        uint32_t size = 0;
        for (const Leaf& leaf : F.leaves) {
            uint32_t text = 0;
            if (leaf.field.type == Type::text) {
                const char* characters = leaf.field.textOf(&record);
                text = json_ ? jsonTextLength(characters) : static_cast<uint32_t>(strlen(characters));
            }
            size += leafSize(leaf, json_, leaf.field.numberOf(&record), text);
        }
        entries_ += entrySize(json_, size);
    }

  private:
    static constexpr uint32_t kLargest[2] = {largestEntry(F.leaves, false), largestEntry(F.leaves, true)};
    static constexpr Path kPath = kPaths[F.index];

    uint32_t batchSize(uint32_t entries) const {
        if (!json_) {
            return lengthDelimitedSize(kGlobalQueryNode.number, lengthDelimitedSize(F.containerNumber, entries));
        }
        // {"qos":{"global-query":{"container":{"list":[entries]}}}}, where no comma stands behind the last entry
        uint32_t frame = 2 - 1;
        for (const char* name : {kQosNode.name, kGlobalQueryNode.name, kPath.container, kPath.list}) {
            frame += jsonNameLength(name) + 2;
        }
        return frame + entries;
    }

    bool json_;
    bool limited_;
    uint32_t entries_ = 0;
};

}  // namespace qos

#endif
