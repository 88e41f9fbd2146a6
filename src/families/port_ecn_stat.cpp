#include "nivex_qos/port_ecn_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmPortEcnStatQueryToEnd = 0;

namespace {

using Record = QosTlmPortEcnStat;

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_PORT_ECN_STAT(QOS_COLUMN, port_ecn_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"interface-name", 2, QOS_FIELD(ifName), QOS_FIELD(ifIndex)},
    {"packets", 3, QOS_FIELD(packets)},
};

constexpr qos::Condition kConditions[] = {
    {"interface-name", qos::Match::pattern, QOS_FIELD(ifName)},
};

constexpr qos::Field kDigest[] = {QOS_FIELD(packets)};

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_PORT_ECN,
    .passIsOpen = &g_qosTlmPortEcnStatQueryToEnd,
    .table = {db_create_qos_tlm_port_ecn_stat_obj, db_release_qos_tlm_port_ecn_stat_object},
    .containerNumber = 55,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = QOS_FIELD(ifIndex)},
    .digest = kDigest,
    .messages = QOS_TLM_FAMILY_MESSAGES("PortEcnStat"),
    .steps = {.gpbStartNode = QOS_TLM_GetPortEcnStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetPortEcnStatJsonStartNode,
              .read = QOS_TLM_ReadPortEcnStatField,
              .check = QOS_TLM_CheckPortEcnStat,
              .isCondition = QOS_TLM_IsConditionPortEcnStat,
              .isRedundant = QOS_TLM_IsRedundantPortEcnStat,
              .fieldValue = QOS_TLM_GetPortEcnStatFieldValue},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(PortEcnStat)
QOS_TLM_DEFINE_CONDITION(PortEcnStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetPortEcnStatFieldValue)
