#include "nivex_qos/queue_drop_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueDropStatQueryToEnd = 0;

namespace {

using Record = QosTlmQueueDropStat;

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_QUEUE_DROP_STAT(QOS_COLUMN, queue_drop_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"interface-name", 2, QOS_FIELD(ifName), QOS_FIELD(ifIndex)}, {"queue0-drop-bytes", 3, QOS_FIELD(queue0DropByts)},
    {"queue0-drop-packets", 4, QOS_FIELD(queue0DropPkts)},        {"queue1-drop-bytes", 5, QOS_FIELD(queue1DropByts)},
    {"queue1-drop-packets", 6, QOS_FIELD(queue1DropPkts)},        {"queue2-drop-bytes", 7, QOS_FIELD(queue2DropByts)},
    {"queue2-drop-packets", 8, QOS_FIELD(queue2DropPkts)},        {"queue3-drop-bytes", 9, QOS_FIELD(queue3DropByts)},
    {"queue3-drop-packets", 10, QOS_FIELD(queue3DropPkts)},       {"queue4-drop-bytes", 11, QOS_FIELD(queue4DropByts)},
    {"queue4-drop-packets", 12, QOS_FIELD(queue4DropPkts)},       {"queue5-drop-bytes", 13, QOS_FIELD(queue5DropByts)},
    {"queue5-drop-packets", 14, QOS_FIELD(queue5DropPkts)},       {"queue6-drop-bytes", 15, QOS_FIELD(queue6DropByts)},
    {"queue6-drop-packets", 16, QOS_FIELD(queue6DropPkts)},       {"queue7-drop-bytes", 17, QOS_FIELD(queue7DropByts)},
    {"queue7-drop-packets", 18, QOS_FIELD(queue7DropPkts)},
};

constexpr qos::Condition kConditions[] = {
    {"interface-name", qos::Match::pattern, QOS_FIELD(ifName)},
};

constexpr qos::Field kDigest[] = {
    QOS_FIELD(queue0DropByts), QOS_FIELD(queue0DropPkts), QOS_FIELD(queue1DropByts), QOS_FIELD(queue1DropPkts),
    QOS_FIELD(queue2DropByts), QOS_FIELD(queue2DropPkts), QOS_FIELD(queue3DropByts), QOS_FIELD(queue3DropPkts),
    QOS_FIELD(queue4DropByts), QOS_FIELD(queue4DropPkts), QOS_FIELD(queue5DropByts), QOS_FIELD(queue5DropPkts),
    QOS_FIELD(queue6DropByts), QOS_FIELD(queue6DropPkts), QOS_FIELD(queue7DropByts), QOS_FIELD(queue7DropPkts),
};

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_QUEUE_DROP,
    .passIsOpen = &g_qosTlmQueDropStatQueryToEnd,
    .table = {db_create_qos_tlm_queue_drop_stat_obj, db_release_qos_tlm_queue_drop_stat_object},
    .containerNumber = 52,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = QOS_FIELD(ifIndex)},
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
