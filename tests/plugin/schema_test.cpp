// The schema against what the plug-in sends: names, numbers, types and order, in both directions.
#include <google/protobuf/unknown_field_set.h>

#include "plugin/families.h"
#include "vexlor_qos.pb.h"

using fake::platform;
using google::protobuf::FieldDescriptor;
using google::protobuf::UnknownFieldSet;

namespace {

struct Field {
    int number;
    std::string name;
    std::string type;
    bool operator==(const Field&) const = default;
};

void PrintTo(const Field& field, std::ostream* out) {
    *out << field.number << " " << field.name << " " << field.type;
}

// A list of the schema: its container and its leaves.
struct Schema {
    Field container;
    std::vector<Field> leaves;
    bool operator==(const Schema&) const = default;
};

const FieldDescriptor* containerOf(const Family& family) {
    const auto* query = vexlor_qos::GlobalQuery::descriptor();
    for (int i = 0; i < query->field_count(); ++i) {
        if (query->field(i)->json_name() == family.container) {
            return query->field(i);
        }
    }
    throw std::runtime_error("no container " + family.container);
}

Schema protoSchema(const Family& family) {
    const FieldDescriptor* container = containerOf(family);
    const FieldDescriptor* list = container->message_type()->field(0);
    EXPECT_EQ(container->message_type()->field_count(), 1);
    EXPECT_EQ(list->json_name(), family.list);
    EXPECT_EQ(list->number(), 1);
    EXPECT_TRUE(list->is_repeated());
    Schema schema{{container->number(), container->json_name(), ""}, {}};
    for (int i = 0; i < list->message_type()->field_count(); ++i) {
        const FieldDescriptor* leaf = list->message_type()->field(i);
        schema.leaves.push_back({leaf->number(), leaf->json_name(), leaf->type_name()});
    }
    return schema;
}

class SchemaTest : public StartedPluginTest, public testing::WithParamInterface<Family> {
  protected:
    // The payload of one row whose values are all different from 0.
    static std::string payload(const Family& family, uint32_t encodeType) {
        clearRows(family);
        addRow(family, 11);
        QosTlmQueryParam request{};
        request.encodeType = encodeType;
        EXPECT_EQ(callEntryPoint(family, request), QOS_TLM_RESULT_DONE);
        const QosTlmSampleData& sample = platform.uploads.at(0).sample;
        std::string text(reinterpret_cast<const char*>(sample.data), sample.dataLen);
        platform.uploads.clear();
        return text;
    }
};

TEST_P(SchemaTest, EqualsWhatTheEncoderSends) {
    const Family& family = GetParam();
    const Schema schema = protoSchema(family);

    UnknownFieldSet sample;
    ASSERT_TRUE(sample.ParseFromString(payload(family, QOS_TLM_ENCODE_GPB)));
    ASSERT_EQ(sample.field_count(), 1);
    UnknownFieldSet query;
    ASSERT_TRUE(query.ParseFromString(sample.field(0).length_delimited()));
    ASSERT_EQ(query.field_count(), 1);
    EXPECT_EQ(query.field(0).number(), schema.container.number);
    UnknownFieldSet container;
    ASSERT_TRUE(container.ParseFromString(query.field(0).length_delimited()));
    ASSERT_EQ(container.field_count(), 1);
    UnknownFieldSet entry;
    ASSERT_TRUE(entry.ParseFromString(container.field(0).length_delimited()));

    // The order of the wire, the order of the JSON text and the types of the columns, leaf by leaf.
    const auto document = nlohmann::ordered_json::parse(payload(family, QOS_TLM_ENCODE_JSON));
    const auto& object = document["qos"]["global-query"][family.container][family.list].at(0);
    std::vector<Field> sent;
    ASSERT_EQ(static_cast<size_t>(entry.field_count()), object.size());
    int position = 0;
    for (const auto& [name, value] : object.items()) {
        const auto& wire = entry.field(position);
        EXPECT_EQ(wire.type() == google::protobuf::UnknownField::TYPE_LENGTH_DELIMITED, value.is_string());
        std::string type = value.is_string() ? "string" : value.is_boolean() ? "bool" : "uint32";
        const std::string& column = family.leaves.at(static_cast<size_t>(position)).column;
        if (type == "uint32" && column[0] != '=') {
            setValue(family, 0, column, ~0ull);
            type = valueOf(family, 0, column) == 0xFFFFFFFFu ? "uint32" : "uint64";
        }
        sent.push_back({wire.number(), name, type});
        ++position;
    }
    EXPECT_EQ(sent, schema.leaves);
}

std::string tagOf(const testing::TestParamInfo<Family>& test) {
    return test.param.tag;
}

INSTANTIATE_TEST_SUITE_P(Families, SchemaTest, testing::ValuesIn(kFamilies), tagOf);

}  // namespace
