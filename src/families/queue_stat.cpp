#include "nivex_qos/queue_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueStatQueryToEnd = 0;

namespace {

using Record = QosTlmQueueStat;
using Columns = Record;

constexpr qos::Column<Record> kColumns[] = {QOS_DB_COLUMNS_QUEUE_STAT(QOS_COLUMN, queue_stat)};

constexpr qos::Leaf<Record> kLeaves[] = {
    {"interface-name", 1, &Record::ifName, &Record::ifIndex},
    {"service-class", 2, &Record::queueId},
    {"pass-packets", 3, &Record::passPackets},
    {"pass-bytes", 4, &Record::passBytes},
    {"pass-packet-rate", 5, &Record::passPktRate},
    {"pass-byte-rate", 6, &Record::passBytRate},
    {"discard-packets", 7, &Record::dropPackets},
    {"discard-bytes", 8, &Record::dropBytes},
    {"discard-packet-rate", 9, &Record::dropPktRate},
    {"discard-byte-rate", 10, &Record::dropBytRate},
};

constexpr qos::Condition<Record> kConditions[] = {
    {"interface-name", qos::Match::pattern, &Record::ifName},
    {"service-class", qos::Match::serviceClass, &Record::queueId},
};

// Rates follow from the counters: they do not make a record a changed one.
constexpr qos::Field<Record> kDigest[] = {&Record::queueId, &Record::passPackets, &Record::passBytes,
                                          &Record::dropPackets, &Record::dropBytes};

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_QUEUE,
    .passIsOpen = &g_qosTlmQueStatQueryToEnd,
    .table = {db_create_qos_tlm_queue_stat_obj, db_release_qos_tlm_queue_stat_object},
    .containerNumber = 13,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = &Record::ifIndex, .queue = &Record::queueId},
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
