#include "nivex_qos/queue_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueBufStatQueryToEnd = 0;

namespace {

using Record = QosTlmQueueBufStat;

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_QUEUE_BUF_STAT(QOS_COLUMN, queue_buf_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"slot-id", 1, QOS_FIELD(slotIdStr), QOS_FIELD(slotId)},
    {"interface-name", 2, QOS_FIELD(ifName), QOS_FIELD(ifIndex)},
    {"queue-id", 3, QOS_FIELD(queueId)},
    {"current-used", 4, QOS_FIELD(curUsed)},
    {"peak-used", 5, QOS_FIELD(peakUsed)},
    {"average-used", 6, QOS_FIELD(avgUsed)},
    {"total-buffer", 7, QOS_FIELD(totalBuf)},
};

constexpr qos::Condition kConditions[] = {
    {"slot-id", qos::Match::exact, QOS_FIELD(slotIdStr)},
    {"interface-name", qos::Match::pattern, QOS_FIELD(ifName)},
    {"queue-id", qos::Match::number, QOS_FIELD(queueId),
     "[Tlm IsConditionQueueBufStat] [queue-id] parse string to num failed."},
};

constexpr qos::Field kDigest[] = {QOS_FIELD(queueId), QOS_FIELD(curUsed), QOS_FIELD(peakUsed), QOS_FIELD(avgUsed),
                                  QOS_FIELD(totalBuf)};

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
    .keys = {.interface = QOS_FIELD(ifIndex), .queue = QOS_FIELD(queueId)},
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
