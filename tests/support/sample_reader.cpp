#include "support/sample_reader.h"

#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "vexlor_qos.pb.h"

using nlohmann::json;

std::vector<json> readEntries(const QosTlmSampleData& sample, uint32_t encodeType, const std::string& container,
                              const std::string& list) {
    std::string text(reinterpret_cast<const char*>(sample.data), sample.dataLen);
    if (encodeType == QOS_TLM_ENCODE_GPB) {
        vexlor_qos::Sample message;
        EXPECT_TRUE(message.ParseFromString(text));
        vexlor_qos::Sample known = message;
        known.DiscardUnknownFields();
        EXPECT_EQ(known.ByteSizeLong(), message.ByteSizeLong()) << "fields that are not in the schema";
        google::protobuf::util::JsonPrintOptions options;
        options.always_print_primitive_fields = true;
        std::string content;
        EXPECT_TRUE(google::protobuf::util::MessageToJsonString(message, &content, options).ok());
        text = "{\"qos\":" + content + "}";
    }
    const json document = json::parse(text, nullptr, false);
    const auto path = json::json_pointer("/qos/global-query/" + container + "/" + list);
    if (!document.is_object() || !document.contains(path) || document["qos"]["global-query"].size() != 1) {
        ADD_FAILURE() << "no sample of " << list << ": " << text.substr(0, 200);
        return {};
    }
    return document.at(path).get<std::vector<json>>();
}

bool sameJson(const json& read, const json& expected) {
    if (expected.is_number()) {
        const double difference = read.is_number() ? std::abs(read.get<double>() - expected.get<double>()) : INFINITY;
        return difference <= expected.get<double>() * DBL_EPSILON || read == expected.dump();
    }
    if (!expected.is_structured()) {
        return read == expected;
    }
    const auto items = expected.items();
    return read.type() == expected.type() && read.size() == expected.size() &&
           std::all_of(items.begin(), items.end(), [&, other = read.items().begin()](const auto& item) mutable {
               const auto& found = *other;
               const bool same = found.key() == item.key() && sameJson(found.value(), item.value());
               ++other;
               return same;
           });
}
