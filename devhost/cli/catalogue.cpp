#include "devhost/cli/catalogue.h"

#include "nivex_qos/queue_stat.h"
#include "vexlor_qos.pb.h"

namespace host {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

const Condition kInterfaceName = {"interface-name", "a pattern in which * stands for digits, as in eth1/0/*", true, {}};
const Condition kServiceClass = {
    "service-class", "be, af1 to af4, ef, cs6 or cs7", false, {"be", "af1", "af2", "af3", "af4", "ef", "cs6", "cs7"}};

// One row for each path that has a query; the schema adds the rest.
std::vector<Catalogued> buildCatalogue() {
    std::vector<Catalogued> catalogue = {
        {"queue-statistics", {kInterfaceName, kServiceClass}, QOS_TLM_QUEUE_STAT_BATCH_LIMIT, nullptr, nullptr},
    };
    const Descriptor* globalQuery = vexlor_qos::GlobalQuery::descriptor();
    for (Catalogued& row : catalogue) {
        for (int index = 0; index < globalQuery->field_count(); ++index) {
            const FieldDescriptor* container = globalQuery->field(index);
            const FieldDescriptor* list = container->message_type()->field(0);
            if (list->is_repeated() && list->json_name() == row.alias) {
                row.container = container;
                row.list = list;
            }
        }
    }
    std::erase_if(catalogue, [](const Catalogued& row) { return row.list == nullptr; });
    return catalogue;
}

}  // namespace

std::vector<std::string> Catalogued::fieldNames() const {
    std::vector<std::string> names;
    names.reserve(static_cast<size_t>(fieldCount()));
    for (int index = 0; index < fieldCount(); ++index) {
        names.push_back(field(index).json_name());
    }
    return names;
}

std::vector<std::string> Catalogued::conditionNames() const {
    std::vector<std::string> names;
    names.reserve(conditions.size());
    for (const Condition& condition : conditions) {
        names.push_back(condition.field);
    }
    return names;
}

const Catalogued* findInCatalogue(std::string_view alias) {
    static const std::vector<Catalogued> catalogue = buildCatalogue();
    for (const Catalogued& row : catalogue) {
        if (row.alias == alias) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace host
