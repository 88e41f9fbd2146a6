// Samples that do not fit the schema must not be shown as if they did.
#include "devhost/sampling/decode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "vexlor_qos.pb.h"

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

const host::Catalogued& queuePath() {
    return *host::findInCatalogue("queue-statistics");
}

constexpr const char* kLeaves =
    R"("interface-name":"eth0","service-class":3,"pass-packets":1,"pass-bytes":2.5e+19,"pass-packet-rate":3,)"
    R"("pass-byte-rate":4,"discard-packets":5,"discard-bytes":18446744073709551615,"discard-packet-rate":6)";

std::string jsonSample(const std::string& record) {
    return R"({"qos":{"global-query":{"queue-statisticss":{"queue-statistics":[)" + record + "]}}}}";
}

std::string decodeError(const std::string& json) {
    try {
        host::decodeJson(queuePath(), json);
        return "no error";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(DecodeJson, ShowsNumbersAsTheTextHasThem) {
    const auto record = std::string("{") + kLeaves + R"(,"discard-byte-rate":7})";
    const host::Row row = {"eth0", "3", "1", "2.5e+19", "3", "4", "5", "18446744073709551615", "6", "7"};
    EXPECT_EQ(host::decodeJson(queuePath(), jsonSample(record + "," + record)), (std::vector<host::Row>{row, row}));
    EXPECT_TRUE(host::decodeJson(queuePath(), jsonSample("")).empty());
}

TEST(DecodeJson, RefusesWhatTheSchemaDoesNotKnow) {
    const auto record = [](const std::string& last) { return jsonSample(std::string("{") + kLeaves + last + "}"); };
    EXPECT_THAT(decodeError(record("")), HasSubstr("record 1 has no 'discard-byte-rate'"));
    EXPECT_THAT(decodeError(record(R"(,"discard-byte-rate":7,"extra":8)")), HasSubstr("queue-statistics//extra"));
    EXPECT_THAT(decodeError(record(R"(,"pass-packets":7)")), HasSubstr("7 stands at"));
    for (const char* value : {"\"7\"", "-7", "true", "null", "[7]", "{\"a\":7}"}) {
        EXPECT_THAT(decodeError(record(std::string(R"(,"discard-byte-rate":)") + value)), HasSubstr("does not fit"))
            << value;
    }
    EXPECT_THAT(decodeError(R"({"qos":{"global-query":{"queue-statistics":[{"service-class":3}]}}})"),
                HasSubstr("3 stands at qos/global-query/queue-statistics//service-class"));
    EXPECT_THAT(decodeError(jsonSample("") + "x"), HasSubstr("does not fit"));
    EXPECT_THAT(decodeError(jsonSample("").substr(0, 40)), HasSubstr("does not fit"));
}

TEST(DecodeGpb, RefusesUnknownFieldsAtEveryLevel) {
    vexlor_qos::Sample sample;
    auto& query = *sample.mutable_global_query();
    auto& list = *query.mutable_queue_statisticss();
    auto& record = *list.add_queue_statistics();
    record.set_interface_name("eth0");
    ASSERT_EQ(host::decodeGpb(queuePath(), sample.SerializeAsString()).size(), 1u);
    for (google::protobuf::Message* message :
         std::initializer_list<google::protobuf::Message*>{&sample, &query, &list, &record}) {
        auto& unknown = *message->GetReflection()->MutableUnknownFields(message);
        unknown.AddVarint(100, 1);
        const std::string bytes = sample.SerializeAsString();
        const auto expected =
            ThrowsMessage<std::runtime_error>(HasSubstr("field 100 in " + message->GetTypeName().substr(11)));
        EXPECT_THAT([&] { host::decodeGpb(queuePath(), bytes); }, expected);
        EXPECT_THAT([&] { host::gpbToJson(bytes); }, expected);
        unknown.Clear();
    }
    const std::string bytes = sample.SerializeAsString();
    EXPECT_THROW(host::decodeGpb(queuePath(), bytes.substr(0, bytes.size() - 1)), std::runtime_error);
}

}  // namespace
