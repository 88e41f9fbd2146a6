#include "devhost/sampling/decode.h"

#include <fmt/format.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/util/json_util.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "devhost/support/shown.h"
#include "vexlor_qos.pb.h"

namespace host {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

void refuseUnknownFields(const Message& message) {
    const Reflection& reflection = *message.GetReflection();
    if (const auto& unknown = reflection.GetUnknownFields(message); !unknown.empty()) {
        throw std::runtime_error(fmt::format("the GPB sample has field {} in {}, which the schema does not know",
                                             unknown.field(0).number(), message.GetDescriptor()->name()));
    }
    std::vector<const FieldDescriptor*> present;
    reflection.ListFields(message, &present);
    for (const FieldDescriptor* field : present) {
        if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
            continue;
        }
        if (!field->is_repeated()) {
            refuseUnknownFields(reflection.GetMessage(message, field));
            continue;
        }
        for (int index = 0; index < reflection.FieldSize(message, field); ++index) {
            refuseUnknownFields(reflection.GetRepeatedMessage(message, field, index));
        }
    }
}

// The messages of the schema with bytes in place of strings, which would have to be UTF-8: a name has any bytes.
class BytesSchema {
  public:
    BytesSchema() {
        google::protobuf::FileDescriptorProto file;
        vexlor_qos::Sample::descriptor()->file()->CopyTo(&file);
        for (auto& message : *file.mutable_message_type()) {
            for (auto& field : *message.mutable_field()) {
                if (field.type() == google::protobuf::FieldDescriptorProto::TYPE_STRING) {
                    field.set_type(google::protobuf::FieldDescriptorProto::TYPE_BYTES);
                }
            }
        }
        const auto* built = pool_.BuildFile(file);
        sample_ = factory_.GetPrototype(built->FindMessageTypeByName(vexlor_qos::Sample::descriptor()->name()));
    }

    std::unique_ptr<Message> newSample() const { return std::unique_ptr<Message>(sample_->New()); }

  private:
    google::protobuf::DescriptorPool pool_;
    google::protobuf::DynamicMessageFactory factory_;
    const Message* sample_;
};

std::unique_ptr<Message> parseSample(std::string_view payload) {
    static const BytesSchema schema;
    auto sample = schema.newSample();
    if (!sample->ParseFromArray(payload.data(), static_cast<int>(payload.size()))) {
        throw std::runtime_error(fmt::format("the sample of {} bytes is no GPB message of the schema", payload.size()));
    }
    refuseUnknownFields(*sample);
    return sample;
}

// Replaces the bytes of names that are no UTF-8.
void makeTextsValid(Message& message) {
    const Reflection& reflection = *message.GetReflection();
    std::vector<const FieldDescriptor*> present;
    reflection.ListFields(message, &present);
    for (const FieldDescriptor* field : present) {
        if (field->type() == FieldDescriptor::TYPE_BYTES) {
            reflection.SetString(&message, field, validUtf8(reflection.GetString(message, field)));
        } else if (field->is_repeated()) {
            for (int index = 0; index < reflection.FieldSize(message, field); ++index) {
                makeTextsValid(*reflection.MutableRepeatedMessage(&message, field, index));
            }
        } else if (field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            makeTextsValid(*reflection.MutableMessage(&message, field));
        }
    }
}

const Message& child(const Message& message, int number) {
    return message.GetReflection()->GetMessage(message, message.GetDescriptor()->FindFieldByNumber(number));
}

std::string valueText(const Message& record, const FieldDescriptor& field) {
    const Reflection& reflection = *record.GetReflection();
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
            return std::to_string(reflection.GetUInt32(record, &field));
        case FieldDescriptor::CPPTYPE_UINT64:
            return std::to_string(reflection.GetUInt64(record, &field));
        case FieldDescriptor::CPPTYPE_BOOL:
            return reflection.GetBool(record, &field) ? "true" : "false";
        case FieldDescriptor::CPPTYPE_STRING:
            return reflection.GetString(record, &field);
        default:
            throw std::logic_error(fmt::format("field {} has type {}", field.full_name(), field.type_name()));
    }
}

// In a text that a JSON parser takes, a byte that is no UTF-8 is one of 256 private characters; so are the bytes of
// such a character itself, so that the text comes back as it was.
constexpr char32_t kByteCharacters = 0x10ff00;

std::string withByteCharacters(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const auto [code, size] = firstCharacter(text);
        if (code < kByteCharacters) {
            valid += text.substr(0, size);
        } else {
            for (const char each : text.substr(0, size)) {
                const auto byte = static_cast<unsigned char>(each);
                valid += {'\xf4', '\x8f', static_cast<char>(0xbc | byte >> 6), static_cast<char>(0x80 | (byte & 0x3f))};
            }
        }
        text.remove_prefix(size);
    }
    return valid;
}

// The text that withByteCharacters() was given.
std::string withBytes(std::string_view valid) {
    std::string text;
    while (!valid.empty()) {
        const auto [code, size] = firstCharacter(valid);
        if (code < kByteCharacters) {
            text += valid.substr(0, size);
        } else {
            text += static_cast<char>(code - kByteCharacters);
        }
        valid.remove_prefix(size);
    }
    return text;
}

// Receives the parser's events. A record is an object at qos/global-query/<container>/<list>/<element>.
class JsonRows : public nlohmann::json_sax<nlohmann::json> {
  public:
    explicit JsonRows(const Catalogued& path)
        : path_(path), recordPlace_{"qos", "global-query", path.container->json_name(), path.list->json_name(), ""} {}

    std::vector<Row> take() { return std::move(rows_); }

    bool start_object(size_t) override {
        if (place_ == recordPlace_) {
            rows_.emplace_back();
            cells_.assign(static_cast<size_t>(path_.fieldCount()), std::nullopt);
        }
        place_.emplace_back();
        return true;
    }

    bool key(string_t& name) override {
        place_.back() = name;
        return true;
    }

    bool end_object() override {
        place_.pop_back();
        if (place_ != recordPlace_) {
            return true;
        }
        for (size_t index = 0; index < cells_.size(); ++index) {
            if (!cells_[index]) {
                const std::string& name = path_.field(static_cast<int>(index)).json_name();
                refuse(fmt::format("record {} has no '{}'", rows_.size(), name));
            }
            rows_.back().push_back(std::move(*cells_[index]));
        }
        return true;
    }

    bool start_array(size_t) override {
        place_.emplace_back();
        return true;
    }

    bool end_array() override {
        place_.pop_back();
        return true;
    }

    bool null() override { return store("null", {}); }
    bool binary(binary_t&) override { return store("binary", {}); }
    bool boolean(bool value) override { return store(value ? "true" : "false", {FieldDescriptor::TYPE_BOOL}); }
    bool number_integer(number_integer_t value) override { return store(std::to_string(value), {}); }
    bool number_unsigned(number_unsigned_t value) override { return store(std::to_string(value), kUnsigned); }
    bool number_float(number_float_t, const string_t& text) override { return store(text, kUnsigned); }
    bool string(string_t& value) override { return store(withBytes(value), {FieldDescriptor::TYPE_STRING}); }

    bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& error) override {
        refuse(error.what());
    }

  private:
    using Types = std::initializer_list<FieldDescriptor::Type>;
    static constexpr Types kUnsigned = {FieldDescriptor::TYPE_UINT32, FieldDescriptor::TYPE_UINT64};

    [[noreturn]] static void refuse(const std::string& what) {
        throw std::runtime_error("the JSON sample does not fit the schema: " + withBytes(what));
    }

    // Keeps the value that stands at the current place; types are those of the leaves that may have it.
    bool store(std::string text, Types types) {
        const bool inRecord = place_.size() == recordPlace_.size() + 1 &&
                              std::equal(recordPlace_.begin(), recordPlace_.end(), place_.begin());
        for (int index = 0; inRecord && index < path_.fieldCount(); ++index) {
            const FieldDescriptor& field = path_.field(index);
            const auto cell = static_cast<size_t>(index);  // there is one only in an object
            if (field.json_name() == place_.back() && !cells_[cell] &&
                std::find(types.begin(), types.end(), field.type()) != types.end()) {
                cells_[cell] = std::move(text);
                return true;
            }
        }
        refuse(fmt::format("{} stands at {}", text, fmt::join(place_, "/")));
    }

    const Catalogued& path_;
    const std::vector<std::string> recordPlace_;
    std::vector<std::string> place_;  // the names that lead to the current value; an element of an array has none
    std::vector<std::optional<std::string>> cells_;  // of the record being read
    std::vector<Row> rows_;
};

}  // namespace

std::vector<Row> decodeGpb(const Catalogued& path, std::string_view payload) {
    const auto sample = parseSample(payload);
    const Message& globalQuery = child(*sample, vexlor_qos::Sample::kGlobalQueryFieldNumber);
    const Message& container = child(globalQuery, path.container->number());
    const Reflection& reflection = *container.GetReflection();
    const FieldDescriptor* list = container.GetDescriptor()->FindFieldByNumber(path.list->number());
    std::vector<Row> rows;
    for (int number = 0; number < reflection.FieldSize(container, list); ++number) {
        const Message& record = reflection.GetRepeatedMessage(container, list, number);
        Row& row = rows.emplace_back();
        for (int index = 0; index < path.fieldCount(); ++index) {
            row.push_back(valueText(record, *record.GetDescriptor()->field(index)));
        }
    }
    return rows;
}

std::vector<Row> decodeJson(const Catalogued& path, std::string_view payload) {
    JsonRows rows(path);
    nlohmann::json::sax_parse(withByteCharacters(payload), &rows);
    return rows.take();
}

std::vector<Row> decodeBatches(const Catalogued& path, QosTlmEncodeType encoding, std::span<const Batch> batches) {
    std::vector<Row> rows;
    for (const Batch& batch : batches) {
        std::vector<Row> decoded = (encoding == QOS_TLM_ENCODE_GPB ? decodeGpb : decodeJson)(path, batch.payload);
        if (decoded.size() < batch.recordCount || (decoded.size() > batch.recordCount && !path.sendsUncounted)) {
            throw std::runtime_error(
                fmt::format("a sample has {} records, its header says {}", decoded.size(), batch.recordCount));
        }
        std::ranges::move(decoded, std::back_inserter(rows));
    }
    return rows;
}

std::string gpbToJson(std::string_view payload) {
    const auto sample = parseSample(payload);
    makeTextsValid(*sample);
    vexlor_qos::Sample valid;
    valid.ParseFromString(sample->SerializeAsString());
    google::protobuf::util::JsonPrintOptions options;
    options.always_print_primitive_fields = true;
    std::string text;
    if (const auto status = MessageToJsonString(valid, &text, options); !status.ok()) {
        throw std::runtime_error(fmt::format("the GPB sample cannot be written as JSON: {}", status.ToString()));
    }
    return printableJson(fmt::format(R"({{"vexlor-qos:qos":{}}})", text));
}

std::string printableJson(std::string_view payload) {
    const std::string json = withByteCharacters(payload);
    if (!nlohmann::json::accept(json)) {
        throw std::runtime_error(fmt::format("the JSON sample of {} bytes is no JSON", payload.size()));
    }
    std::string text;
    for (std::string_view rest = json; !rest.empty();) {
        const auto [code, size] = firstCharacter(rest);
        if (code >= kByteCharacters) {
            text += fmt::format(R"(\\x{:02x})", code - kByteCharacters);
        } else if (code < ' ') {
            text += ' ';  // between values; in a string it would be no JSON
        } else if (isPrintable(code)) {
            text += rest.substr(0, size);
        } else {
            text += fmt::format(R"(\u{:04x})", static_cast<uint32_t>(code));
        }
        rest.remove_prefix(size);
    }
    return text;
}

}  // namespace host
