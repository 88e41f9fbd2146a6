#include "nivex_qos/buf_ing_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmBufIngStatQueryRecordToEnd = 0;

namespace {

struct BufIngStat {
    using Record = QosTlmBufIngStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_BUF_ING;
    static constexpr uint32_t batchLimit = QOS_TLM_BUF_ING_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmBufIngStatQueryRecordToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_ing_buf_usage_stat_obj,
                                         db_release_qos_tlm_ing_buf_usage_stat_object};
    static constexpr qos::Node container = {"intf-ing-buf-usage-statisticss", 73};
    static constexpr qos::Node list = {"intf-ing-buf-usage-statistics", 1};
    static constexpr qos::Node entry = {"intf-ing-buf-usage-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::ifIndex, db_get_qos_tlm_ing_buf_usage_stat_if_index),
        qos::column(&Record::queueId, db_get_qos_tlm_ing_buf_usage_stat_queue),
        qos::column(&Record::ifName, db_get_qos_tlm_ing_buf_usage_stat_if_name),
        qos::column(&Record::isLossless, db_get_qos_tlm_ing_buf_usage_stat_is_lossless),
        qos::column(&Record::isPfcDynamic, db_get_qos_tlm_ing_buf_usage_stat_is_pfc_dynamic),
        qos::column(&Record::currentGuaranteed, db_get_qos_tlm_ing_buf_usage_stat_current_guaranteed),
        qos::column(&Record::totalGuaranteed, db_get_qos_tlm_ing_buf_usage_stat_total_guaranteed),
        qos::column(&Record::currentBuffer, db_get_qos_tlm_ing_buf_usage_stat_current_buffer),
        qos::column(&Record::totalBuffer, db_get_qos_tlm_ing_buf_usage_stat_total_buffer),
        qos::column(&Record::currentHeadroom, db_get_qos_tlm_ing_buf_usage_stat_current_headroom),
        qos::column(&Record::totalHeadroom, db_get_qos_tlm_ing_buf_usage_stat_total_headroom),
    };
    static_assert(qos::bytesRead(columns) + 3 /* padding */ == sizeof(Record),
                  "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("interface-name", 1, &Record::ifName, &Record::ifIndex),
        qos::leaf("queue-id", 2, &Record::queueId),
        qos::leaf("pfc-dynamic", 3, &Record::isPfcDynamic),
        qos::leaf("current-guaranteed", 4, &Record::currentGuaranteed),
        qos::leaf("total-guaranteed", 5, &Record::totalGuaranteed),
        qos::leaf("current-buffer", 6, &Record::currentBuffer),
        qos::leaf("total-buffer", 7, &Record::totalBuffer),
        qos::leaf("current-headroom", 8, &Record::currentHeadroom),
        qos::leaf("total-headroom", 9, &Record::totalHeadroom),
    };

    static constexpr std::tuple conditions = {
        qos::pattern("interface-name", &Record::ifName),
        qos::number("queue-id", &Record::queueId, "[Tlm IsConditionBufIngStat] parse string to num failed."),
    };

    static constexpr qos::InterfaceQueueKeys<Record> keys = {&Record::ifIndex, &Record::queueId};

    static constexpr std::tuple digest = {&Record::queueId,         &Record::isPfcDynamic,  &Record::currentGuaranteed,
                                          &Record::totalGuaranteed, &Record::currentBuffer, &Record::totalBuffer,
                                          &Record::currentHeadroom, &Record::totalHeadroom};

    // Only lossless queues are reported; the others are dropped before any other test.
    static bool admits(const Record& record) { return record.isLossless != 0; }

    static constexpr qos::Messages messages = QOS_TLM_FAMILY_MESSAGES("BufIngStat");

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadBufIngStatField, QOS_TLM_CheckBufIngStat,
                                                      QOS_TLM_GetBufIngStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryBufIngStatFromDb, BufIngStat)
QOS_TLM_DEFINE_STEPS(BufIngStat, BufIngStat)
QOS_TLM_DEFINE_READ(BufIngStat, BufIngStat)
QOS_TLM_DEFINE_START_NODES(BufIngStat, BufIngStat)
QOS_TLM_DEFINE_CONDITION(BufIngStat, BufIngStat)
QOS_TLM_DEFINE_CHECKS(BufIngStat, BufIngStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetBufIngStatFieldValue, BufIngStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsBufIngStatRecordCntOver, BufIngStat)
