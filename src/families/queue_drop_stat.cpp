#include "nivex_qos/queue_drop_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueDropStatQueryToEnd = 0;

namespace {

struct QueueDropStat {
    using Record = QosTlmQueueDropStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_QUEUE_DROP;
    static constexpr uint32_t batchLimit = QOS_TLM_QUEUE_DROP_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmQueDropStatQueryToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_queue_drop_stat_obj,
                                         db_release_qos_tlm_queue_drop_stat_object};
    static constexpr qos::Node container = {"queue-drop-statisticss", 52};
    static constexpr qos::Node list = {"queue-drop-statistics", 1};
    static constexpr qos::Node entry = {"queue-drop-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::ifIndex, db_get_qos_tlm_queue_drop_stat_ifIndex),
        qos::column(&Record::ifName, db_get_qos_tlm_queue_drop_stat_ifName),
        qos::column(&Record::queue0DropByts, db_get_qos_tlm_queue_drop_stat_queue0DropByts),
        qos::column(&Record::queue0DropPkts, db_get_qos_tlm_queue_drop_stat_queue0DropPkts),
        qos::column(&Record::queue1DropByts, db_get_qos_tlm_queue_drop_stat_queue1DropByts),
        qos::column(&Record::queue1DropPkts, db_get_qos_tlm_queue_drop_stat_queue1DropPkts),
        qos::column(&Record::queue2DropByts, db_get_qos_tlm_queue_drop_stat_queue2DropByts),
        qos::column(&Record::queue2DropPkts, db_get_qos_tlm_queue_drop_stat_queue2DropPkts),
        qos::column(&Record::queue3DropByts, db_get_qos_tlm_queue_drop_stat_queue3DropByts),
        qos::column(&Record::queue3DropPkts, db_get_qos_tlm_queue_drop_stat_queue3DropPkts),
        qos::column(&Record::queue4DropByts, db_get_qos_tlm_queue_drop_stat_queue4DropByts),
        qos::column(&Record::queue4DropPkts, db_get_qos_tlm_queue_drop_stat_queue4DropPkts),
        qos::column(&Record::queue5DropByts, db_get_qos_tlm_queue_drop_stat_queue5DropByts),
        qos::column(&Record::queue5DropPkts, db_get_qos_tlm_queue_drop_stat_queue5DropPkts),
        qos::column(&Record::queue6DropByts, db_get_qos_tlm_queue_drop_stat_queue6DropByts),
        qos::column(&Record::queue6DropPkts, db_get_qos_tlm_queue_drop_stat_queue6DropPkts),
        qos::column(&Record::queue7DropByts, db_get_qos_tlm_queue_drop_stat_queue7DropByts),
        qos::column(&Record::queue7DropPkts, db_get_qos_tlm_queue_drop_stat_queue7DropPkts),
    };
    static_assert(qos::bytesRead(columns) + 4 /* padding */ == sizeof(Record),
                  "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("interface-name", 2, &Record::ifName, &Record::ifIndex),
        qos::leaf("queue0-drop-bytes", 3, &Record::queue0DropByts),
        qos::leaf("queue0-drop-packets", 4, &Record::queue0DropPkts),
        qos::leaf("queue1-drop-bytes", 5, &Record::queue1DropByts),
        qos::leaf("queue1-drop-packets", 6, &Record::queue1DropPkts),
        qos::leaf("queue2-drop-bytes", 7, &Record::queue2DropByts),
        qos::leaf("queue2-drop-packets", 8, &Record::queue2DropPkts),
        qos::leaf("queue3-drop-bytes", 9, &Record::queue3DropByts),
        qos::leaf("queue3-drop-packets", 10, &Record::queue3DropPkts),
        qos::leaf("queue4-drop-bytes", 11, &Record::queue4DropByts),
        qos::leaf("queue4-drop-packets", 12, &Record::queue4DropPkts),
        qos::leaf("queue5-drop-bytes", 13, &Record::queue5DropByts),
        qos::leaf("queue5-drop-packets", 14, &Record::queue5DropPkts),
        qos::leaf("queue6-drop-bytes", 15, &Record::queue6DropByts),
        qos::leaf("queue6-drop-packets", 16, &Record::queue6DropPkts),
        qos::leaf("queue7-drop-bytes", 17, &Record::queue7DropByts),
        qos::leaf("queue7-drop-packets", 18, &Record::queue7DropPkts),
    };

    static constexpr std::tuple conditions = {
        qos::pattern("interface-name", &Record::ifName),
    };

    static constexpr qos::InterfaceKeys<Record> keys = {&Record::ifIndex};

    static constexpr std::tuple digest = {
        &Record::queue0DropByts, &Record::queue0DropPkts, &Record::queue1DropByts, &Record::queue1DropPkts,
        &Record::queue2DropByts, &Record::queue2DropPkts, &Record::queue3DropByts, &Record::queue3DropPkts,
        &Record::queue4DropByts, &Record::queue4DropPkts, &Record::queue5DropByts, &Record::queue5DropPkts,
        &Record::queue6DropByts, &Record::queue6DropPkts, &Record::queue7DropByts, &Record::queue7DropPkts};

    static constexpr qos::Messages messages = QOS_TLM_FAMILY_MESSAGES("QueueDropStat");

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadQueueDropStatField, QOS_TLM_CheckQueueDropStat,
                                                      QOS_TLM_GetQueueDropStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryQueueDropStatFromDb, QueueDropStat)
QOS_TLM_DEFINE_STEPS(QueueDropStat, QueueDropStat)
QOS_TLM_DEFINE_READ(QueueDropStat, QueueDropStat)
QOS_TLM_DEFINE_START_NODES(QueueDropStat, QueueDropStat)
QOS_TLM_DEFINE_CONDITION(QueueDropStat, QueueDropStat)
QOS_TLM_DEFINE_CHECKS(QueueDropStat, QueueDropStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetQueDropStatFieldValue, QueueDropStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsQueueDropStatRecordCntOver, QueueDropStat)
