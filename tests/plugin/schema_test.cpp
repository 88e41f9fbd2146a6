// The schema against what the plug-in sends: names, numbers, types and order, in both directions.
#include <google/protobuf/unknown_field_set.h>

#include "plugin/families.h"
#include "vexlor_qos.pb.h"

using fake::platform;
using google::protobuf::FieldDescriptor;
using google::protobuf::UnknownFieldSet;

namespace {

class SchemaTest : public StartedPluginTest, public testing::WithParamInterface<Family> {};

// The numbers of the fields of an entry, in the order of the wire.
std::vector<int> sentNumbers(std::string gpb) {
    UnknownFieldSet fields;
    for (const char* level : {"sample", "query", "container", "entry"}) {
        EXPECT_TRUE(fields.ParseFromString(gpb)) << level;
        if (fields.field_count() == 1 && level[0] != 'e') {
            gpb = fields.field(0).length_delimited();
        }
    }
    std::vector<int> numbers;
    for (int i = 0; i < fields.field_count(); ++i) {
        numbers.push_back(fields.field(i).number());
    }
    return numbers;
}

// That the values are those of the names and numbers, the other tests see when they read samples.
TEST_P(SchemaTest, HasTheLeavesThatAreSentInTheirOrder) {
    const Family& family = GetParam();
    const auto* query = vexlor_qos::GlobalQuery::descriptor();
    const FieldDescriptor* list = nullptr;
    for (int i = 0; i < query->field_count(); ++i) {
        if (query->field(i)->json_name() == family.container) {
            ASSERT_EQ(query->field(i)->message_type()->field_count(), 1);
            list = query->field(i)->message_type()->field(0);
        }
    }
    ASSERT_TRUE(list != nullptr && list->is_repeated() && list->json_name() == family.list);
    const auto* schema = list->message_type();
    ASSERT_EQ(static_cast<size_t>(schema->field_count()), family.leaves.size());

    addRow(family, 11);  // no value is 0
    QosTlmQueryParam request{};
    for (request.encodeType = 0; request.encodeType < 2; ++request.encodeType) {
        EXPECT_EQ(callEntryPoint(family, request), QOS_TLM_RESULT_DONE);
        CALL(QOS_HashRelease)(family.index);
    }
    const auto payload = [](const fake::Upload& upload) {
        return std::string(reinterpret_cast<const char*>(upload.sample.data), upload.sample.dataLen);
    };
    const auto document = nlohmann::ordered_json::parse(payload(platform.uploads.at(1)));
    const auto& entry = document["qos"]["global-query"][family.container][family.list].at(0);
    std::vector<int> numbers;
    auto sent = entry.items().begin();
    for (int i = 0; i < schema->field_count(); ++i, ++sent) {
        const FieldDescriptor& field = *schema->field(i);
        const std::string& column = family.leaves.at(static_cast<size_t>(i)).column;
        numbers.push_back(field.number());
        EXPECT_EQ(sent.key(), field.json_name());
        std::string type = sent.value().is_string() ? "string" : sent.value().is_boolean() ? "bool" : "uint32";
        if (type == "uint32" && column[0] != '=') {
            setValue(family, 0, column, ~0ull);
            type = valueOf(family, 0, column) == 0xFFFFFFFFu ? "uint32" : "uint64";
        }
        EXPECT_EQ(field.type_name(), type) << field.name();
    }
    EXPECT_EQ(sentNumbers(payload(platform.uploads.at(0))), numbers);
}

INSTANTIATE_TEST_SUITE_P(Families, SchemaTest, testing::ValuesIn(kFamilies), nameOf);

}  // namespace
