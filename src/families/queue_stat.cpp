#include "nivex_qos/queue_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueStatQueryToEnd = 0;

namespace {

using Record = QosTlmQueueStat;

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_QUEUE_STAT(QOS_COLUMN, queue_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"interface-name", 1, QOS_FIELD(ifName), QOS_FIELD(ifIndex)},
    {"service-class", 2, QOS_FIELD(queueId)},
    {"pass-packets", 3, QOS_FIELD(passPackets)},
    {"pass-bytes", 4, QOS_FIELD(passBytes)},
    {"pass-packet-rate", 5, QOS_FIELD(passPktRate)},
    {"pass-byte-rate", 6, QOS_FIELD(passBytRate)},
    {"discard-packets", 7, QOS_FIELD(dropPackets)},
    {"discard-bytes", 8, QOS_FIELD(dropBytes)},
    {"discard-packet-rate", 9, QOS_FIELD(dropPktRate)},
    {"discard-byte-rate", 10, QOS_FIELD(dropBytRate)},
};

constexpr qos::Condition kConditions[] = {
    {"interface-name", qos::Match::pattern, QOS_FIELD(ifName)},
    {"service-class", qos::Match::serviceClass, QOS_FIELD(queueId)},
};

// Rates follow from the counters: they do not make a record a changed one.
constexpr qos::Field kDigest[] = {QOS_FIELD(queueId), QOS_FIELD(passPackets), QOS_FIELD(passBytes),
                                  QOS_FIELD(dropPackets), QOS_FIELD(dropBytes)};

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_QUEUE,
    .passIsOpen = &g_qosTlmQueStatQueryToEnd,
    .table = {db_create_qos_tlm_queue_stat_obj, db_release_qos_tlm_queue_stat_object},
    .containerNumber = 13,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = QOS_FIELD(ifIndex), .queue = QOS_FIELD(queueId)},
    .digest = kDigest,
    .messages = QOS_TLM_FAMILY_MESSAGES("QueueStat"),
    .steps = {.gpbStartNode = QOS_TLM_GetQueueStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetQueueStatJsonStartNode,
              .read = QOS_TLM_ReadQueueStatField,
              .check = QOS_TLM_CheckQueueStat,
              .isCondition = QOS_TLM_IsConditionQueueStat,
              .isRedundant = QOS_TLM_IsRedundantQueueStat,
              .fieldValue = QOS_TLM_GetQueueStatFieldValue,
              .addEntry = QOS_TLM_GetQueueStatDataNode},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(QueueStat)
QOS_TLM_DEFINE_CONDITION(QueueStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetQueueStatFieldValue)
