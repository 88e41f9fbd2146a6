#include "nivex_qos/buf_ing_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmBufIngStatQueryRecordToEnd = 0;

namespace {

using Record = QosTlmBufIngStat;
struct Columns : Record {
    static constexpr auto if_index = &Record::ifIndex;
    static constexpr auto queue = &Record::queueId;
    static constexpr auto if_name = &Record::ifName;
    static constexpr auto is_lossless = &Record::isLossless;
    static constexpr auto is_pfc_dynamic = &Record::isPfcDynamic;
    static constexpr auto current_guaranteed = &Record::currentGuaranteed;
    static constexpr auto total_guaranteed = &Record::totalGuaranteed;
    static constexpr auto current_buffer = &Record::currentBuffer;
    static constexpr auto total_buffer = &Record::totalBuffer;
    static constexpr auto current_headroom = &Record::currentHeadroom;
    static constexpr auto total_headroom = &Record::totalHeadroom;
};

constexpr qos::Column<Record> kColumns[] = {QOS_DB_COLUMNS_ING_BUF_USAGE_STAT(QOS_COLUMN, ing_buf_usage_stat)};

constexpr qos::Leaf<Record> kLeaves[] = {
    {"interface-name", 1, &Record::ifName, &Record::ifIndex},
    {"queue-id", 2, &Record::queueId},
    {"pfc-dynamic", 3, &Record::isPfcDynamic},
    {"current-guaranteed", 4, &Record::currentGuaranteed},
    {"total-guaranteed", 5, &Record::totalGuaranteed},
    {"current-buffer", 6, &Record::currentBuffer},
    {"total-buffer", 7, &Record::totalBuffer},
    {"current-headroom", 8, &Record::currentHeadroom},
    {"total-headroom", 9, &Record::totalHeadroom},
};

constexpr qos::Condition<Record> kConditions[] = {
    {"interface-name", qos::Match::pattern, &Record::ifName},
    {"queue-id", qos::Match::number, &Record::queueId, "[Tlm IsConditionBufIngStat] parse string to num failed."},
};

constexpr qos::Field<Record> kDigest[] = {&Record::queueId,         &Record::isPfcDynamic,  &Record::currentGuaranteed,
                                          &Record::totalGuaranteed, &Record::currentBuffer, &Record::totalBuffer,
                                          &Record::currentHeadroom, &Record::totalHeadroom};

// Only lossless queues are reported; the others are dropped before any other test.
bool isLossless(const Record& record) {
    return record.isLossless != 0;
}

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_BUF_ING,
    .passIsOpen = &g_qosTlmBufIngStatQueryRecordToEnd,
    .table = {db_create_qos_tlm_ing_buf_usage_stat_obj, db_release_qos_tlm_ing_buf_usage_stat_object},
    .containerNumber = 73,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = &Record::ifIndex, .queue = &Record::queueId},
    .digest = kDigest,
    .admits = isLossless,
    .messages = QOS_TLM_FAMILY_MESSAGES("BufIngStat"),
    .steps = {.gpbStartNode = QOS_TLM_GetBufIngStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetBufIngStatJsonStartNode,
              .read = QOS_TLM_ReadBufIngStatField,
              .check = QOS_TLM_CheckBufIngStat,
              .isCondition = QOS_TLM_IsConditionBufIngStat,
              .isRedundant = QOS_TLM_IsRedundantBufIngStat,
              .fieldValue = QOS_TLM_GetBufIngStatFieldValue,
              .addEntry = QOS_TLM_GetBufIngStatDataNode},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(BufIngStat)
QOS_TLM_DEFINE_CONDITION(BufIngStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetBufIngStatFieldValue)
