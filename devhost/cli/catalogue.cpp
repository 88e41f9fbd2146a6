#include "devhost/cli/catalogue.h"

#include <algorithm>
#include <utility>

#include "nivex_qos/buf_ing_stat.h"
#include "nivex_qos/buf_monitor_stat.h"
#include "nivex_qos/ing_port_drop_stat.h"
#include "nivex_qos/port_buf_stat.h"
#include "nivex_qos/port_ecn_stat.h"
#include "nivex_qos/queue_buf_stat.h"
#include "nivex_qos/queue_drop_stat.h"
#include "nivex_qos/queue_stat.h"
#include "nivex_qos/tm_buf_stat.h"
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

Catalogued known(std::string alias, std::vector<Condition> conditions, uint32_t batchLimit,
                 std::vector<std::string> notCompared = {}) {
    return {std::move(alias), std::move(conditions), batchLimit, false, false, std::move(notCompared), nullptr,
            nullptr};
}

// The paths; the schema adds the rest.
std::vector<Catalogued> buildCatalogue() {
    std::vector<Catalogued> catalogue = {
        known("port-ecn-statistics", {kInterfaceName}, QOS_TLM_PORT_ECN_STAT_BATCH_LIMIT),
        known("port-buffer-usage-statistics", {kSlotId, kInterfaceName}, QOS_TLM_PORT_BUF_STAT_BATCH_LIMIT,
              {"slot-id", "interface-name"}),
        known("queue-buffer-usage-statistics", {kSlotId, kInterfaceName, kQueueId}, QOS_TLM_QUEUE_BUF_STAT_BATCH_LIMIT),
        known("queue-statistics", {kInterfaceName, kServiceClass}, QOS_TLM_QUEUE_STAT_BATCH_LIMIT),
        known("queue-drop-statistics", {kInterfaceName}, QOS_TLM_QUEUE_DROP_STAT_BATCH_LIMIT),
        known("ing-port-drop-statistics", {kInterfaceName}, QOS_TLM_ING_PORT_DROP_STAT_BATCH_LIMIT),
        known("tm-chip-buffer-usage-statistics", {kSlotId}, QOS_TLM_TM_BUF_STAT_BATCH_LIMIT, {"slot-id"}),
        known("intf-ing-buf-usage-statistics", {kInterfaceName, kQueueId}, QOS_TLM_BUF_ING_STAT_BATCH_LIMIT),
        known("interface-monitoring-result", {kExactInterfaceName, kQueueId}, QOS_TLM_BUF_MONITOR_STAT_BATCH_LIMIT),
    };
    catalogue.back().conditionsOnly = true;
    const Descriptor* globalQuery = vexlor_qos::GlobalQuery::descriptor();
    for (Catalogued& row : catalogue) {
        row.sendsUncounted = row.alias == "tm-chip-buffer-usage-statistics";
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
