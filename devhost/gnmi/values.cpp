#include "devhost/gnmi/values.h"

#include <fmt/format.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "devhost/gnmi/fault.h"
#include "devhost/support/shown.h"

namespace gnmi {

namespace {

using google::protobuf::FieldDescriptor;
using host::Value;

// The largest number up to which every whole one is exact in a reader that takes numbers of JSON for doubles.
constexpr uint64_t kExact = uint64_t{1} << 53U;

void appendJson(std::string& json, const FieldDescriptor& field, const Value& value, Encoding encoding) {
    if (const auto* const number = std::get_if<uint64_t>(&value)) {
        const bool isText =
            encoding == JSON_IETF ? field.cpp_type() == FieldDescriptor::CPPTYPE_UINT64 : *number > kExact;
        const std::string_view quote = isText ? "\"" : "";
        fmt::format_to(std::back_inserter(json), "{0}{1}{0}", quote, *number);
    } else if (const auto* const truth = std::get_if<bool>(&value)) {
        json += *truth ? "true" : "false";
    } else {
        json += nlohmann::json(host::validUtf8(std::get<std::string>(value))).dump();
    }
}

TypedValue inJson(std::string json, Encoding encoding) {
    TypedValue value;
    if (encoding == JSON_IETF) {
        value.set_json_ietf_val(std::move(json));
    } else {
        value.set_json_val(std::move(json));
    }
    return value;
}

TypedValue rowValue(const host::Catalogued& list, const host::Record& record, Encoding encoding) {
    std::string json = fmt::format("{{\"{}:", kModule);
    for (int index = 0; index < list.fieldCount(); ++index) {
        const FieldDescriptor& field = list.field(index);
        json += index == 0 ? "" : ",\"";
        json += field.json_name();
        json += "\":";
        appendJson(json, field, record.values[static_cast<size_t>(index)], encoding);
    }
    json += '}';
    return inJson(std::move(json), encoding);
}

TypedValue leafValue(const FieldDescriptor& field, const Value& value, Encoding encoding) {
    TypedValue typed;
    if (encoding != PROTO) {
        std::string json;
        appendJson(json, field, value, encoding);
        return inJson(std::move(json), encoding);
    }
    if (const auto* const number = std::get_if<uint64_t>(&value)) {
        typed.set_uint_val(*number);
    } else if (const auto* const truth = std::get_if<bool>(&value)) {
        typed.set_bool_val(*truth);
    } else {
        typed.set_string_val(host::validUtf8(std::get<std::string>(value)));
    }
    return typed;
}

}  // namespace

void checkEncoding(Encoding encoding) {
    if (encoding != JSON_IETF && encoding != PROTO && encoding != JSON) {
        const std::string& name = Encoding_Name(encoding);
        throw Fault(grpc::StatusCode::UNIMPLEMENTED,
                    fmt::format("encoding {} is not served: JSON_IETF, PROTO and JSON are",
                                name.empty() ? std::to_string(encoding) : name));
    }
}

size_t addUpdates(Notification& notification, const Addressed& what, const host::RowKey& row,
                  const host::Record& record, Encoding encoding, uint32_t duplicates) {
    // Tag and length of an update in its notification, at most.
    constexpr size_t kFrame = 4;
    const host::Catalogued& list = *what.list;
    const Path path = pathOf(list, row);
    size_t size = 0;
    const auto add = [&](TypedValue value, const FieldDescriptor* leaf) {
        Update& update = *notification.add_update();
        *update.mutable_path() = path;
        if (leaf != nullptr) {
            update.mutable_path()->add_elem()->set_name(leaf->json_name());
        }
        *update.mutable_val() = std::move(value);
        update.set_duplicates(duplicates);
        size += update.ByteSizeLong() + kFrame;
    };
    if (!what.leaf && encoding != PROTO) {
        add(rowValue(list, record, encoding), nullptr);
        return size;
    }
    const int first = what.leaf.value_or(0);
    const int end = what.leaf ? first + 1 : list.fieldCount();
    for (int index = first; index < end; ++index) {
        const FieldDescriptor& field = list.field(index);
        add(leafValue(field, record.values[static_cast<size_t>(index)], encoding), &field);
    }
    return size;
}

}  // namespace gnmi
