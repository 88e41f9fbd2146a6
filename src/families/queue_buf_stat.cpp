#include "nivex_qos/queue_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueBufStatQueryToEnd = 0;

namespace {

using Record = QosTlmQueueBufStat;
using Columns = Record;

constexpr qos::Column<Record> kColumns[] = {QOS_DB_COLUMNS_QUEUE_BUF_STAT(QOS_COLUMN, queue_buf_stat)};

constexpr qos::Leaf<Record> kLeaves[] = {
    {"slot-id", 1, &Record::slotIdStr, &Record::slotId},
    {"interface-name", 2, &Record::ifName, &Record::ifIndex},
    {"queue-id", 3, &Record::queueId},
    {"current-used", 4, &Record::curUsed},
    {"peak-used", 5, &Record::peakUsed},
    {"average-used", 6, &Record::avgUsed},
    {"total-buffer", 7, &Record::totalBuf},
};

constexpr qos::Condition<Record> kConditions[] = {
    {"slot-id", qos::Match::exact, &Record::slotIdStr},
    {"interface-name", qos::Match::pattern, &Record::ifName},
    {"queue-id", qos::Match::number, &Record::queueId,
     "[Tlm IsConditionQueueBufStat] [queue-id] parse string to num failed."},
};

constexpr qos::Field<Record> kDigest[] = {&Record::queueId, &Record::curUsed, &Record::peakUsed, &Record::avgUsed,
                                          &Record::totalBuf};

constexpr qos::Messages kMessages = [] {
    qos::Messages texts = QOS_TLM_FAMILY_MESSAGES("QueueBufStat");
    texts.entryNode = "[Tlm GetQueueBufStatStartNode] Create node2 failed.";
    return texts;
}();

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_QUEUE_BUF,
    .passIsOpen = &g_qosTlmQueBufStatQueryToEnd,
    .table = {db_create_qos_tlm_queue_buf_stat_obj, db_release_qos_tlm_queue_buf_stat_object},
    .containerNumber = 50,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = &Record::ifIndex, .queue = &Record::queueId},
    .digest = kDigest,
    .messages = kMessages,
    .steps = {.gpbStartNode = QOS_TLM_GetQueueBufStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetQueueBufStatJsonStartNode,
              .read = QOS_TLM_ReadQueueBufStatField,
              .check = QOS_TLM_CheckQueueBufStat,
              .isCondition = QOS_TLM_IsConditionQueueBufStat,
              .isRedundant = QOS_TLM_IsRedundantQueueBufStat,
              .fieldValue = QOS_TLM_GetQueBufStatFieldValue,
              .addEntry = QOS_TLM_GetQueueBufStatDataNode},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(QueueBufStat)
QOS_TLM_DEFINE_CONDITION(QueueBufStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetQueBufStatFieldValue)
