#include "nivex_qos/ing_port_drop_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmIngStatQueryToEnd = 0;

namespace {

using Record = QosTlmIngPortDropStat;
struct Columns : Record {
    static constexpr auto dropByts = &Record::dropBytes;
};

constexpr qos::Column<Record> kColumns[] = {QOS_DB_COLUMNS_ING_PORT_DROP_STAT(QOS_COLUMN, ing_port_drop_stat)};

constexpr qos::Leaf<Record> kLeaves[] = {
    {"interface-name", 1, &Record::ifName, &Record::ifIndex},
    {"drop-bytes", 2, &Record::dropBytes},
    {"drop-packets", 3, &Record::dropPkts},
};

constexpr qos::Condition<Record> kConditions[] = {
    {"interface-name", qos::Match::pattern, &Record::ifName},
};

constexpr qos::Field<Record> kDigest[] = {&Record::dropBytes, &Record::dropPkts};

constexpr qos::Messages kMessages = [] {
    qos::Messages texts = QOS_TLM_FAMILY_MESSAGES("IngPortDropStat");
    texts.copyText = "[Tlm ReadIngPortDropStatField] strcpy error, ret=";
    return texts;
}();

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_ING_PORT_DROP,
    .passIsOpen = &g_qosTlmIngStatQueryToEnd,
    .table = {db_create_qos_tlm_ing_port_drop_stat_obj, db_release_qos_tlm_ing_port_drop_stat_object},
    .containerNumber = 53,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = &Record::ifIndex},
    .digest = kDigest,
    .messages = kMessages,
    .steps = {.gpbStartNode = QOS_TLM_GetIngPortDropStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetIngPortDropStatJsonStartNode,
              .read = QOS_TLM_ReadIngPortDropStatField,
              .check = QOS_TLM_CheckIngPortDropStat,
              .isCondition = QOS_TLM_IsConditionIngPortDropStat,
              .isSelfDefEvt = QOS_TLM_IsSelfDefEvtIngPortDropStat,
              .fieldValue = QOS_TLM_GetIngPortDropStatFieldValue,
              .addEntry = QOS_TLM_GetIngPortDropStatDataNode},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(IngPortDropStat)
QOS_TLM_DEFINE_CONDITION(IngPortDropStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetIngPortDropStatFieldValue)
