#include "nivex_qos/queue_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmQueStatQueryToEnd = 0;

namespace {

struct QueueStat {
    using Record = QosTlmQueueStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_QUEUE;
    static constexpr uint32_t batchLimit = QOS_TLM_QUEUE_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmQueStatQueryToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_queue_stat_obj, db_release_qos_tlm_queue_stat_object};
    static constexpr qos::Node container = {"queue-statisticss", 13};
    static constexpr qos::Node list = {"queue-statistics", 1};
    static constexpr qos::Node entry = {"queue-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::ifIndex, db_get_qos_tlm_queue_stat_ifIndex),
        qos::column(&Record::ifName, db_get_qos_tlm_queue_stat_ifName),
        qos::column(&Record::queueId, db_get_qos_tlm_queue_stat_queueId),
        qos::column(&Record::passPackets, db_get_qos_tlm_queue_stat_passPackets),
        qos::column(&Record::passBytes, db_get_qos_tlm_queue_stat_passBytes),
        qos::column(&Record::passPktRate, db_get_qos_tlm_queue_stat_passPktRate),
        qos::column(&Record::passBytRate, db_get_qos_tlm_queue_stat_passBytRate),
        qos::column(&Record::dropPackets, db_get_qos_tlm_queue_stat_dropPackets),
        qos::column(&Record::dropBytes, db_get_qos_tlm_queue_stat_dropBytes),
        qos::column(&Record::dropPktRate, db_get_qos_tlm_queue_stat_dropPktRate),
        qos::column(&Record::dropBytRate, db_get_qos_tlm_queue_stat_dropBytRate),
    };
    static_assert(qos::bytesRead(columns) == sizeof(Record), "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("interface-name", 1, &Record::ifName, &Record::ifIndex),
        qos::leaf("service-class", 2, &Record::queueId),
        qos::leaf("pass-packets", 3, &Record::passPackets),
        qos::leaf("pass-bytes", 4, &Record::passBytes),
        qos::leaf("pass-packet-rate", 5, &Record::passPktRate),
        qos::leaf("pass-byte-rate", 6, &Record::passBytRate),
        qos::leaf("discard-packets", 7, &Record::dropPackets),
        qos::leaf("discard-bytes", 8, &Record::dropBytes),
        qos::leaf("discard-packet-rate", 9, &Record::dropPktRate),
        qos::leaf("discard-byte-rate", 10, &Record::dropBytRate),
    };

    static constexpr std::tuple conditions = {
        qos::pattern("interface-name", &Record::ifName),
        qos::serviceClass("service-class", &Record::queueId),
    };

    static constexpr qos::InterfaceQueueKeys<Record> keys = {&Record::ifIndex, &Record::queueId};

    // Rates follow from the counters: they do not make a record a changed one.
    static constexpr std::tuple digest = {&Record::queueId, &Record::passPackets, &Record::passBytes,
                                          &Record::dropPackets, &Record::dropBytes};

    static constexpr qos::Messages messages = QOS_TLM_FAMILY_MESSAGES("QueueStat");

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadQueueStatField, QOS_TLM_CheckQueueStat,
                                                      QOS_TLM_GetQueueStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryQueueStatFromDb, QueueStat)
QOS_TLM_DEFINE_STEPS(QueueStat, QueueStat)
QOS_TLM_DEFINE_READ(QueueStat, QueueStat)
QOS_TLM_DEFINE_START_NODES(QueueStat, QueueStat)
QOS_TLM_DEFINE_CONDITION(QueueStat, QueueStat)
QOS_TLM_DEFINE_CHECKS(QueueStat, QueueStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetQueueStatFieldValue, QueueStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsQueueStatRecordCntOver, QueueStat)
