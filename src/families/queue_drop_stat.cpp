#include "nivex_qos/queue_drop_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueDropStatQueryToEnd = 0;

namespace {

using Record = QosTlmQueueDropStat;
using Columns = Record;

constexpr qos::Column<Record> kColumns[] = {QOS_DB_COLUMNS_QUEUE_DROP_STAT(QOS_COLUMN, queue_drop_stat)};

constexpr qos::Leaf<Record> kLeaves[] = {
    {"interface-name", 2, &Record::ifName, &Record::ifIndex}, {"queue0-drop-bytes", 3, &Record::queue0DropByts},
    {"queue0-drop-packets", 4, &Record::queue0DropPkts},      {"queue1-drop-bytes", 5, &Record::queue1DropByts},
    {"queue1-drop-packets", 6, &Record::queue1DropPkts},      {"queue2-drop-bytes", 7, &Record::queue2DropByts},
    {"queue2-drop-packets", 8, &Record::queue2DropPkts},      {"queue3-drop-bytes", 9, &Record::queue3DropByts},
    {"queue3-drop-packets", 10, &Record::queue3DropPkts},     {"queue4-drop-bytes", 11, &Record::queue4DropByts},
    {"queue4-drop-packets", 12, &Record::queue4DropPkts},     {"queue5-drop-bytes", 13, &Record::queue5DropByts},
    {"queue5-drop-packets", 14, &Record::queue5DropPkts},     {"queue6-drop-bytes", 15, &Record::queue6DropByts},
    {"queue6-drop-packets", 16, &Record::queue6DropPkts},     {"queue7-drop-bytes", 17, &Record::queue7DropByts},
    {"queue7-drop-packets", 18, &Record::queue7DropPkts},
};

constexpr qos::Condition<Record> kConditions[] = {
    {"interface-name", qos::Match::pattern, &Record::ifName},
};

// All counters.
constexpr auto kDigest = qos::fieldsFrom<2>(kColumns);

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_QUEUE_DROP,
    .passIsOpen = &g_qosTlmQueDropStatQueryToEnd,
    .table = {db_create_qos_tlm_queue_drop_stat_obj, db_release_qos_tlm_queue_drop_stat_object},
    .containerNumber = 52,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = &Record::ifIndex},
    .digest = kDigest,
    .messages = QOS_TLM_FAMILY_MESSAGES("QueueDropStat"),
    .steps = {.gpbStartNode = QOS_TLM_GetQueueDropStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetQueueDropStatJsonStartNode,
              .read = QOS_TLM_ReadQueueDropStatField,
              .check = QOS_TLM_CheckQueueDropStat,
              .isCondition = QOS_TLM_IsConditionQueueDropStat,
              .isRedundant = QOS_TLM_IsRedundantQueueDropStat,
              .fieldValue = QOS_TLM_GetQueDropStatFieldValue,
              .addEntry = QOS_TLM_GetQueueDropStatDataNode},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(QueueDropStat)
QOS_TLM_DEFINE_CONDITION(QueueDropStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetQueDropStatFieldValue)
