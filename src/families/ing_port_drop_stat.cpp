#include "nivex_qos/ing_port_drop_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmIngStatQueryToEnd = 0;

namespace {

using Record = QosTlmIngPortDropStat;

// The fields by the names of their columns.
namespace renamed {
constexpr qos::Field ifIndex = QOS_FIELD(ifIndex);
constexpr qos::Field ifName = QOS_FIELD(ifName);
constexpr qos::Field dropByts = QOS_FIELD(dropBytes);
constexpr qos::Field dropPkts = QOS_FIELD(dropPkts);
}  // namespace renamed

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_ING_PORT_DROP_STAT(QOS_RENAMED_COLUMN, ing_port_drop_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"interface-name", 1, QOS_FIELD(ifName), QOS_FIELD(ifIndex)},
    {"drop-bytes", 2, QOS_FIELD(dropBytes)},
    {"drop-packets", 3, QOS_FIELD(dropPkts)},
};

constexpr qos::Condition kConditions[] = {
    {"interface-name", qos::Match::pattern, QOS_FIELD(ifName)},
};

constexpr qos::Field kDigest[] = {QOS_FIELD(dropBytes), QOS_FIELD(dropPkts)};

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
    .keys = {.interface = QOS_FIELD(ifIndex)},
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
