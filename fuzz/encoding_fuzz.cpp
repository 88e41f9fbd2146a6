// Trees in both encodings, read by libprotobuf and an independent JSON parser, against the tree itself.
#include <google/protobuf/unknown_field_set.h>

#include <cfloat>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/platform.h"
#include "nivex_qos/encode.h"
#include "platform/host_framework.h"

using fake::platform;
using fuzz::Input;
using google::protobuf::UnknownField;
using google::protobuf::UnknownFieldSet;
using nlohmann::ordered_json;

namespace {

constexpr size_t kDeepest = 24;

// By place among the children, so that none comes twice in an object. Some need escapes.
const char* nameOf(size_t place) {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made;
        for (size_t i = 0; i < 4096; ++i) {
            constexpr const char* kEndings[] = {"", "-name", "\"", "\\", "\n\x01", "\xC3\xA4\xE2\x82\xAC"};
            made.push_back(std::to_string(i) + kEndings[i % std::size(kEndings)]);
        }
        return made;
    }();
    return names[place].c_str();
}

std::string readText(Input& input) {
    constexpr const char* kWide[] = {"\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9D\x84\x9E", "/"};
    std::string text;
    for (const char character : input.text(0xFE)) {
        text += static_cast<uint8_t>(character) < 0x80 ? std::string(1, character) : kWide[character & 3];
    }
    return text;
}

uint32_t readFieldNumber(Input& input) {
    const uint8_t number = input.byte();
    return number < 0xC0 ? 1 + number : 1 + input.number<uint32_t>() % ((1U << 29) - 1);
}

// Children until the input says that there are no more. A list has entries and nothing else, entries stand in lists.
void addChildren(Input& input, QosTlmNode* parent, size_t depth) {
    const bool isList = parent->repeatType == QOS_TLM_REPEAT_LIST;
    for (size_t place = 0; !input.isOver() && place < 4096; ++place) {
        const uint8_t kind = input.below(7);
        if (kind == 0 || (depth == kDeepest && kind > 4)) {
            return;
        }
        const uint32_t number = readFieldNumber(input);
        const char* name = nameOf(place);
        if (isList || kind > 4) {
            const uint16_t type = isList ? QOS_TLM_REPEAT_ENTRY : kind == 5 ? QOS_TLM_REPEAT_NONE : QOS_TLM_REPEAT_LIST;
            QosTlmNode* node = QOS_TLM_CreateNode(name, number, type);
            QOS_TLM_AddChild(parent, node);
            if (node != nullptr && depth < kDeepest) {
                addChildren(input, node, depth + 1);
            }
        } else if (kind == 1) {
            QOS_TLM_AddChildBool(parent, name, input.number<uint32_t>() >> 24, number);
        } else if (kind == 2) {
            QOS_TLM_AddChildUint32(parent, name, static_cast<uint32_t>(input.spread()), number);
        } else if (kind == 3) {
            QOS_TLM_AddChildUint64(parent, name, input.spread(), number);
        } else {
            QOS_TLM_AddChildString(parent, name, readText(input).c_str(), number);
        }
    }
}

const char* textOf(const QosTlmNodeData& leaf) {
    return reinterpret_cast<const char*>(static_cast<uintptr_t>(leaf.value));
}

void requireSameGpb(const QosTlmNode* node, const std::string& content, bool& hasEmpty) {
    UnknownFieldSet fields;
    REQUIRE(fields.ParseFromString(content));
    int place = 0;
    for (; node != nullptr; node = node->next) {
        if (node->isLeaf == 0 && node->firstChild == nullptr) {
            hasEmpty = true;  // left out
            continue;
        }
        REQUIRE(place < fields.field_count());
        const UnknownField& field = fields.field(place++);
        REQUIRE(static_cast<uint32_t>(field.number()) == node->data.fieldNumber);
        if (node->isLeaf == 0) {
            REQUIRE(field.type() == UnknownField::TYPE_LENGTH_DELIMITED);
            requireSameGpb(node->firstChild, field.length_delimited(), hasEmpty);
        } else if (node->data.valueType == QOS_TLM_VALUE_STRING) {
            REQUIRE(field.type() == UnknownField::TYPE_LENGTH_DELIMITED);
            REQUIRE(field.length_delimited() == textOf(node->data));
        } else {
            REQUIRE(field.type() == UnknownField::TYPE_VARINT);
            REQUIRE(field.varint() == node->data.value);
        }
    }
    REQUIRE(place == fields.field_count());
}

void requireSameJson(const QosTlmNode& node, const ordered_json& read) {
    const QosTlmNodeData& data = node.data;
    if (node.isLeaf == 0) {
        REQUIRE(node.repeatType == QOS_TLM_REPEAT_LIST ? read.is_array() : read.is_object());
        auto item = read.items().begin();
        for (const QosTlmNode* child = node.firstChild; child != nullptr; child = child->next, ++item) {
            REQUIRE(item != read.items().end());
            REQUIRE(read.is_array() || item.key() == child->data.name);
            requireSameJson(*child, item.value());
        }
        REQUIRE(item == read.items().end());
    } else if (data.valueType == QOS_TLM_VALUE_STRING) {
        REQUIRE(read.is_string() && read == textOf(data));
    } else if (data.valueType == QOS_TLM_VALUE_BOOL) {
        REQUIRE(read.is_boolean() && read == (data.value != 0));
    } else {
        // cJSON prints what reads back to within this of the double.
        const auto nearest = static_cast<double>(data.value);
        REQUIRE(read.is_number() && std::abs(read.get<double>() - nearest) <= nearest * DBL_EPSILON);
    }
}

struct BlockRelease {
    void operator()(void* block) const { NIVEX_FreeBuff(block); }
};

std::optional<std::string> encode(const QosTlmNode* top, uint32_t encodeType) {
    uint32_t length = 0;
    const std::unique_ptr<void, BlockRelease> block(QOS_TLM_Encoding(top, encodeType, &length));
    return block ? std::optional(std::string(static_cast<const char*>(block.get()), length)) : std::nullopt;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::beginInput();
    Input input(data, size);
    platform.untilFailure = input.byte();
    QosTlmNode* top = QOS_TLM_CreateNode("top", readFieldNumber(input), QOS_TLM_REPEAT_NONE);
    if (top == nullptr) {
        return 0;
    }
    addChildren(input, top, 1);
    const auto gpb = encode(top, QOS_TLM_ENCODE_GPB);
    const auto json = encode(top, QOS_TLM_ENCODE_JSON);
    platform.untilFailure = 0;
    if (!platform.hasFailed) {
        REQUIRE(gpb && json);
        bool hasEmpty = false;
        const uint32_t estimate = QOS_TLM_EstimatePackageSize(top, QOS_TLM_ENCODE_GPB);
        requireSameGpb(top, *gpb, hasEmpty);
        REQUIRE(hasEmpty ? estimate > gpb->size() : estimate == gpb->size());

        const ordered_json document = ordered_json::parse(*json, nullptr, false);
        REQUIRE(document.is_object() && document.size() == 1 && document.contains("top"));
        requireSameJson(*top, document["top"]);
        REQUIRE(QOS_TLM_EstimatePackageSize(top, QOS_TLM_ENCODE_JSON) == json->size());
    }
    QOS_TLM_ReleaseNode(top);
    REQUIRE(fake::liveBlocks() == 0);
    return 0;
}
