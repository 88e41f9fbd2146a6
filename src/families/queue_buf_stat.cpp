#include "nivex_qos/queue_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueBufStatQueryToEnd = 0;

namespace {

struct QueueBufStat {
    using Record = QosTlmQueueBufStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_QUEUE_BUF;
    static constexpr uint32_t batchLimit = QOS_TLM_QUEUE_BUF_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmQueBufStatQueryToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_queue_buf_stat_obj,
                                         db_release_qos_tlm_queue_buf_stat_object};
    static constexpr qos::Node container = {"queue-buffer-usage-statisticss", 50};
    static constexpr qos::Node list = {"queue-buffer-usage-statistics", 1};
    static constexpr qos::Node entry = {"queue-buffer-usage-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::slotId, db_get_qos_tlm_queue_buf_stat_slotId),
        qos::column(&Record::slotIdStr, db_get_qos_tlm_queue_buf_stat_slotIdStr),
        qos::column(&Record::ifIndex, db_get_qos_tlm_queue_buf_stat_ifIndex),
        qos::column(&Record::ifName, db_get_qos_tlm_queue_buf_stat_ifName),
        qos::column(&Record::queueId, db_get_qos_tlm_queue_buf_stat_queueId),
        qos::column(&Record::curUsed, db_get_qos_tlm_queue_buf_stat_curUsed),
        qos::column(&Record::peakUsed, db_get_qos_tlm_queue_buf_stat_peakUsed),
        qos::column(&Record::avgUsed, db_get_qos_tlm_queue_buf_stat_avgUsed),
        qos::column(&Record::totalBuf, db_get_qos_tlm_queue_buf_stat_totalBuf),
    };
    static_assert(qos::bytesRead(columns) + 4 /* padding */ == sizeof(Record),
                  "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("slot-id", 1, &Record::slotIdStr, &Record::slotId),
        qos::leaf("interface-name", 2, &Record::ifName, &Record::ifIndex),
        qos::leaf("queue-id", 3, &Record::queueId),
        qos::leaf("current-used", 4, &Record::curUsed),
        qos::leaf("peak-used", 5, &Record::peakUsed),
        qos::leaf("average-used", 6, &Record::avgUsed),
        qos::leaf("total-buffer", 7, &Record::totalBuf),
    };

    static constexpr std::tuple conditions = {
        qos::exactText("slot-id", &Record::slotIdStr),
        qos::pattern("interface-name", &Record::ifName),
        qos::number("queue-id", &Record::queueId,
                    "[Tlm IsConditionQueueBufStat] [queue-id] parse string to num failed."),
    };

    static constexpr qos::InterfaceQueueKeys<Record> keys = {&Record::ifIndex, &Record::queueId};

    static constexpr std::tuple digest = {&Record::queueId, &Record::curUsed, &Record::peakUsed, &Record::avgUsed,
                                          &Record::totalBuf};

    static constexpr qos::Messages messages = [] {
        qos::Messages texts = QOS_TLM_FAMILY_MESSAGES("QueueBufStat");
        texts.entryNode = "[Tlm GetQueueBufStatStartNode] Create node2 failed.";
        return texts;
    }();

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadQueueBufStatField, QOS_TLM_CheckQueueBufStat,
                                                      QOS_TLM_GetQueueBufStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryQueueBufStatFromDb, QueueBufStat)
QOS_TLM_DEFINE_STEPS(QueueBufStat, QueueBufStat)
QOS_TLM_DEFINE_READ(QueueBufStat, QueueBufStat)
QOS_TLM_DEFINE_START_NODES(QueueBufStat, QueueBufStat)
QOS_TLM_DEFINE_CONDITION(QueueBufStat, QueueBufStat)
QOS_TLM_DEFINE_CHECKS(QueueBufStat, QueueBufStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetQueBufStatFieldValue, QueueBufStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsQueueBufStatRecordCntOver, QueueBufStat)
