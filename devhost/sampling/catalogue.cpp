#include "devhost/sampling/catalogue.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "nivex_qos/paths.h"
#include "platform/qos_db_tables.h"
#include "vexlor_qos.pb.h"

namespace host {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;

const Condition kInterfaceName = {
    "interface-name", "a pattern in which * stands for digits, as in eth1/0/*", ConditionKind::pattern, {}};
const Condition kExactInterfaceName = {"interface-name", "the whole name, no pattern", ConditionKind::text, {}};
const Condition kSlotId = {"slot-id", "the slot as its records have it, as in 1 or 1/2", ConditionKind::text, {}};
const Condition kQueueId = {"queue-id", "a number", ConditionKind::number, {}};
const Condition kServiceClass = {"service-class",
                                 "be, af1 to af4, ef, cs6 or cs7",
                                 ConditionKind::choice,
                                 {"be", "af1", "af2", "af3", "af4", "ef", "cs6", "cs7"}};

Catalogued pathOf(std::string alias, uint32_t batchLimit) {
    return {std::move(alias), {}, {}, {}, batchLimit, false, false, {}, nullptr, nullptr};
}

// What a list's key may be made of; the rest of an entry tells nothing of which row it is.
constexpr std::array<std::string_view, 4> kKeys = {"slot-id", "interface-name", "queue-id", "service-class"};

// The paths; the schema adds the rest.
std::vector<Catalogued> buildCatalogue() {
#define PATH(NAME, list, entryPoint, queryFromDb, batchLimit) pathOf(list, batchLimit),
    std::vector<Catalogued> catalogue = {QOS_TLM_PATHS(PATH)};
#undef PATH
#define NAME(table, columns) #table,
    size_t family = 0;
    for (const char* table : {QOS_DB_TABLES(NAME)}) {
        catalogue[family++].table = table;
    }
#undef NAME
    catalogue[QOS_TLM_FAMILY_PORT_ECN].conditions = {kInterfaceName};
    catalogue[QOS_TLM_FAMILY_PORT_BUF].conditions = {kSlotId, kInterfaceName};
    catalogue[QOS_TLM_FAMILY_QUEUE_BUF].conditions = {kSlotId, kInterfaceName, kQueueId};
    catalogue[QOS_TLM_FAMILY_QUEUE].conditions = {kInterfaceName, kServiceClass};
    catalogue[QOS_TLM_FAMILY_QUEUE_DROP].conditions = {kInterfaceName};
    catalogue[QOS_TLM_FAMILY_ING_PORT_DROP].conditions = {kInterfaceName};
    catalogue[QOS_TLM_FAMILY_TM_BUF].conditions = {kSlotId};
    catalogue[QOS_TLM_FAMILY_BUF_ING].conditions = {kInterfaceName, kQueueId};
    catalogue[QOS_TLM_FAMILY_BUF_MONITOR].conditions = {kExactInterfaceName, kQueueId};
    catalogue[QOS_TLM_FAMILY_PORT_BUF].notCompared = {"slot-id", "interface-name"};
    catalogue[QOS_TLM_FAMILY_TM_BUF].notCompared = {"slot-id"};
    catalogue[QOS_TLM_FAMILY_TM_BUF].sendsUncounted = true;
    catalogue[QOS_TLM_FAMILY_BUF_MONITOR].conditionsOnly = true;
    const Descriptor* globalQuery = vexlor_qos::GlobalQuery::descriptor();
    for (Catalogued& row : catalogue) {
        for (int index = 0; index < globalQuery->field_count(); ++index) {
            const FieldDescriptor* container = globalQuery->field(index);
            const FieldDescriptor* list = container->message_type()->field(0);
            if (list->is_repeated() && list->json_name() == row.alias) {
                row.container = container;
                row.list = list;
                for (int leaf = 0; leaf < row.fieldCount(); ++leaf) {
                    if (std::ranges::find(kKeys, row.field(leaf).json_name()) != kKeys.end()) {
                        row.keys.push_back(leaf);
                    }
                }
            }
        }
    }
    // A burst's slot says where its queue was.
    catalogue[QOS_TLM_FAMILY_BUF_MONITOR].keys.resize(2);
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

bool Catalogued::isKey(int index) const {
    return std::ranges::find(keys, index) != keys.end();
}

std::vector<std::string> Catalogued::conditionNames() const {
    std::vector<std::string> names;
    names.reserve(conditions.size());
    for (const Condition& condition : conditions) {
        names.push_back(condition.field);
    }
    return names;
}

std::vector<std::string> Catalogued::thresholdNames() const {
    std::vector<std::string> names = conditionsOnly ? std::vector<std::string>{} : fieldNames();
    std::erase_if(
        names, [this](const std::string& name) { return std::ranges::find(notCompared, name) != notCompared.end(); });
    return names;
}

const std::vector<Catalogued>& catalogue() {
    static const std::vector<Catalogued> catalogue = buildCatalogue();
    return catalogue;
}

const Catalogued* findInCatalogue(std::string_view alias) {
    for (const Catalogued& row : catalogue()) {
        if (row.alias == alias) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace host
