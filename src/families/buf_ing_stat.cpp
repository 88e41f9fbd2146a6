#include "nivex_qos/buf_ing_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmBufIngStatQueryRecordToEnd = 0;

namespace {

using Record = QosTlmBufIngStat;

// The fields by the names of their columns.
namespace renamed {
constexpr qos::Field if_index = QOS_FIELD(ifIndex);
constexpr qos::Field queue = QOS_FIELD(queueId);
constexpr qos::Field if_name = QOS_FIELD(ifName);
constexpr qos::Field is_lossless = QOS_FIELD(isLossless);
constexpr qos::Field is_pfc_dynamic = QOS_FIELD(isPfcDynamic);
constexpr qos::Field current_guaranteed = QOS_FIELD(currentGuaranteed);
constexpr qos::Field total_guaranteed = QOS_FIELD(totalGuaranteed);
constexpr qos::Field current_buffer = QOS_FIELD(currentBuffer);
constexpr qos::Field total_buffer = QOS_FIELD(totalBuffer);
constexpr qos::Field current_headroom = QOS_FIELD(currentHeadroom);
constexpr qos::Field total_headroom = QOS_FIELD(totalHeadroom);
}  // namespace renamed

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_ING_BUF_USAGE_STAT(QOS_RENAMED_COLUMN, ing_buf_usage_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"interface-name", 1, QOS_FIELD(ifName), QOS_FIELD(ifIndex)},
    {"queue-id", 2, QOS_FIELD(queueId)},
    {"pfc-dynamic", 3, QOS_FIELD(isPfcDynamic)},
    {"current-guaranteed", 4, QOS_FIELD(currentGuaranteed)},
    {"total-guaranteed", 5, QOS_FIELD(totalGuaranteed)},
    {"current-buffer", 6, QOS_FIELD(currentBuffer)},
    {"total-buffer", 7, QOS_FIELD(totalBuffer)},
    {"current-headroom", 8, QOS_FIELD(currentHeadroom)},
    {"total-headroom", 9, QOS_FIELD(totalHeadroom)},
};

constexpr qos::Condition kConditions[] = {
    {"interface-name", qos::Match::pattern, QOS_FIELD(ifName)},
    {"queue-id", qos::Match::number, QOS_FIELD(queueId), "[Tlm IsConditionBufIngStat] parse string to num failed."},
};

constexpr qos::Field kDigest[] = {QOS_FIELD(queueId),         QOS_FIELD(isPfcDynamic),  QOS_FIELD(currentGuaranteed),
                                  QOS_FIELD(totalGuaranteed), QOS_FIELD(currentBuffer), QOS_FIELD(totalBuffer),
                                  QOS_FIELD(currentHeadroom), QOS_FIELD(totalHeadroom)};

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
    .keys = {.interface = QOS_FIELD(ifIndex), .queue = QOS_FIELD(queueId)},
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
