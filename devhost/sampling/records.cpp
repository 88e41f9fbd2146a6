#include "devhost/sampling/records.h"

#include <fmt/format.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <charconv>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <utility>

#include "devhost/sampling/decode.h"
#include "vexlor_qos.pb.h"

namespace host {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

[[noreturn]] void refuse(const std::string& what) {
    throw std::runtime_error("the GPB sample " + what);
}

uint64_t readNumber(CodedInputStream& input) {
    uint64_t number = 0;
    if (!input.ReadVarint64(&number)) {
        refuse("ends in a number");
    }
    return number;
}

/* Of the field, which must have the wire type of its kind. */
void readValue(CodedInputStream& input, const FieldDescriptor& field, uint32_t wireType, Value& value) {
    const bool isText = field.cpp_type() == FieldDescriptor::CPPTYPE_STRING;
    if (wireType != (isText ? WireFormatLite::WIRETYPE_LENGTH_DELIMITED : WireFormatLite::WIRETYPE_VARINT)) {
        refuse(fmt::format("has {} with wire type {}", field.full_name(), wireType));
    }
    if (isText) {
        uint32_t size = 0;
        if (!input.ReadVarint32(&size) || !input.ReadString(&std::get<std::string>(value), static_cast<int>(size))) {
            refuse(fmt::format("ends in {}", field.full_name()));
        }
    } else if (field.cpp_type() == FieldDescriptor::CPPTYPE_BOOL) {
        value = readNumber(input) != 0;
    } else {
        const uint64_t number = readNumber(input);
        if (field.cpp_type() == FieldDescriptor::CPPTYPE_UINT32 && number > UINT32_MAX) {
            refuse(fmt::format("has {} in {}, which has 32 bits", number, field.full_name()));
        }
        value = number;
    }
}

Value emptyValue(const FieldDescriptor& field) {
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_STRING:
            return std::string();
        case FieldDescriptor::CPPTYPE_BOOL:
            return false;
        default:
            return uint64_t{0};
    }
}

/* Calls onField for each field up to the end of the message that begins here, its length first. */
template <class OnField>
void readMessage(CodedInputStream& input, const OnField& onField) {
    uint32_t size = 0;
    if (!input.ReadVarint32(&size) || static_cast<int>(size) < 0 || static_cast<int>(size) > input.BytesUntilLimit()) {
        refuse("ends in a message");
    }
    const auto limit = input.PushLimit(static_cast<int>(size));
    while (const uint32_t tag = input.ReadTag()) {
        onField(WireFormatLite::GetTagFieldNumber(tag), static_cast<uint32_t>(WireFormatLite::GetTagWireType(tag)));
    }
    if (!input.ConsumedEntireMessage()) {
        refuse("has no message where one is due");
    }
    input.PopLimit(limit);
}

std::vector<RecordPointer> decodeGpbRecords(const Catalogued& path, std::string_view payload) {
    Record empty;
    for (int index = 0; index < path.fieldCount(); ++index) {
        empty.values.push_back(emptyValue(path.field(index)));
    }
    const auto& entry = *path.list->message_type();
    std::vector<RecordPointer> records;
    CodedInputStream input(reinterpret_cast<const uint8_t*>(payload.data()), static_cast<int>(payload.size()));
    // The payload is a message without its length.
    const auto whole = input.PushLimit(static_cast<int>(payload.size()));
    const auto expect = [](int number, uint32_t wireType, int wanted, const char* where) {
        if (number != wanted || wireType != WireFormatLite::WIRETYPE_LENGTH_DELIMITED) {
            refuse(fmt::format("has field {} in {}, which the schema of this path does not know", number, where));
        }
    };
    while (const uint32_t tag = input.ReadTag()) {
        expect(WireFormatLite::GetTagFieldNumber(tag), static_cast<uint32_t>(WireFormatLite::GetTagWireType(tag)),
               vexlor_qos::Sample::kGlobalQueryFieldNumber, "Sample");
        readMessage(input, [&](int containerNumber, uint32_t containerType) {
            expect(containerNumber, containerType, path.container->number(), "GlobalQuery");
            readMessage(input, [&](int listNumber, uint32_t listType) {
                expect(listNumber, listType, path.list->number(), "the container");
                auto record = std::make_shared<Record>(empty);
                readMessage(input, [&](int number, uint32_t wireType) {
                    const FieldDescriptor* field = entry.FindFieldByNumber(number);
                    if (field == nullptr) {
                        refuse(fmt::format("has field {} in {}, which the schema does not know", number, entry.name()));
                    }
                    readValue(input, *field, wireType, record->values[static_cast<size_t>(field->index())]);
                });
                records.push_back(std::move(record));
            });
        });
    }
    if (!input.ConsumedEntireMessage()) {
        refuse("is no message");
    }
    input.PopLimit(whole);
    return records;
}

// With an exponent as well, as in 2e+15: so the plug-in writes large ones, from doubles.
std::optional<uint64_t> wholeNumber(std::string_view text) {
    const char* const end = text.data() + text.size();
    uint64_t number = 0;
    if (const auto [after, fault] = std::from_chars(text.data(), end, number); after == end) {
        return fault == std::errc{} ? std::optional(number) : std::nullopt;
    }
    constexpr double kPastLargest = 0x1p64;  // what the largest ones are rounded to
    double rounded = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, rounded);
    if (error != std::errc{} || rest != end || std::trunc(rounded) != rounded || rounded < 0 ||
        rounded > kPastLargest) {
        return {};
    }
    return rounded < kPastLargest ? static_cast<uint64_t>(rounded) : UINT64_MAX;
}

Value valueOf(const FieldDescriptor& field, std::string text) {
    Value value = emptyValue(field);
    if (auto* const number = std::get_if<uint64_t>(&value)) {
        const auto read = wholeNumber(text);
        if (!read) {
            throw std::runtime_error(fmt::format("the JSON sample has {} in {}, which is no whole number of 64 bits",
                                                 text, field.json_name()));
        }
        *number = *read;
    } else if (auto* const truth = std::get_if<bool>(&value)) {
        *truth = text == "true";
    } else {
        value = std::move(text);
    }
    return value;
}

}  // namespace

std::string textOf(const Value& value) {
    if (const auto* const number = std::get_if<uint64_t>(&value)) {
        return std::to_string(*number);
    }
    if (const auto* const truth = std::get_if<bool>(&value)) {
        return *truth ? "true" : "false";
    }
    return std::get<std::string>(value);
}

size_t sizeOf(const Record& record) {
    size_t size = sizeof(Record) + record.values.capacity() * sizeof(Value);
    for (const Value& value : record.values) {
        if (const auto* const text = std::get_if<std::string>(&value); text != nullptr && text->capacity() > 15) {
            size += text->capacity();
        }
    }
    return size;
}

std::vector<RecordPointer> decodeRecords(const Catalogued& path, QosTlmEncodeType encoding, std::string_view payload) {
    if (encoding == QOS_TLM_ENCODE_GPB) {
        return decodeGpbRecords(path, payload);
    }
    std::vector<RecordPointer> records;
    for (Row& row : decodeJson(path, payload)) {
        auto record = std::make_shared<Record>();
        for (size_t index = 0; index < row.size(); ++index) {
            record->values.push_back(valueOf(path.field(static_cast<int>(index)), std::move(row[index])));
        }
        records.push_back(std::move(record));
    }
    return records;
}

RowKey rowKeyOf(const std::vector<std::string>& keys) {
    RowKey row;
    for (const std::string& key : keys) {
        row += static_cast<char>(std::min<size_t>(key.size(), 255));
        row.append(key, 0, 255);
    }
    return row;
}

RowKey rowKeyOf(const Catalogued& path, const Record& record) {
    std::vector<std::string> keys;
    for (const int index : path.keys) {
        keys.push_back(textOf(record.values[static_cast<size_t>(index)]));
    }
    return rowKeyOf(keys);
}

std::vector<std::string> keysOf(const RowKey& row) {
    std::vector<std::string> keys;
    for (size_t at = 0; at < row.size();) {
        const auto size = static_cast<unsigned char>(row[at]);
        keys.push_back(row.substr(at + 1, size));
        at += 1 + size_t{size};
    }
    return keys;
}

}  // namespace host
