#include "nivex_qos/tm_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmTmBufStatQueryToEnd = 0;

namespace {

using Record = QosTlmTmBufStat;

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_TM_CHIP_BUF_STAT(QOS_COLUMN, tm_chip_buf_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"slot-id", 1, QOS_FIELD(slotId)},
    {"total-buffer", 2, QOS_FIELD(totalBuf)},
    {"used-buffer", 3, QOS_FIELD(usedBuf)},
    {"used-percentage", 4, QOS_FIELD(usedPct)},
};

constexpr qos::Condition kConditions[] = {
    {"slot-id", qos::Match::exact, QOS_FIELD(slotId)},
};

constexpr qos::Field kDigest[] = {QOS_FIELD(totalBuf), QOS_FIELD(usedBuf), QOS_FIELD(usedPct)};

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_TM_BUF,
    .passIsOpen = &g_qosTlmTmBufStatQueryToEnd,
    .table = {db_create_qos_tlm_tm_chip_buf_stat_obj, db_release_qos_tlm_tm_chip_buf_stat_object},
    .containerNumber = 64,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.slot = QOS_FIELD(slotId),
             .noSlot = {"[Tlm IsSentTmBufStat] parse string slot to num slot failed.",
                        "[Tlm IsTmBufStatRecordCntOver] parse string slot to num slot failed.",
                        "[Tlm IsRedundantTmBufStat] parse string slot to num slot failed.",
                        "[Tlm IsSelfDefEvtTmBufStat] parse string slot to num slot failed."},
             .noRoom = "[Tlm QueryTmBufStatFromDb] records without a slot leave no room for others."},
    .digest = kDigest,
    .messages = QOS_TLM_FAMILY_MESSAGES("TmBufStat"),
    .steps = {.gpbStartNode = QOS_TLM_GetTmBufStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetTmBufStatJsonStartNode,
              .read = QOS_TLM_ReadTmBufStatField,
              .check = QOS_TLM_CheckTmBufStat,
              .isRedundant = QOS_TLM_IsRedundantTmBufStat,
              .isSelfDefEvt = QOS_TLM_IsSelfDefEvtTmBufStat,
              .addEntry = QOS_TLM_GetTmBufStatDataNode},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(TmBufStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetTmBufStatFieldValue)

// Unlike the other families' this one takes the text alone.
uint32_t QOS_TLM_IsConditionTmBufStat(const char* slotText, const QosTlmQueryParam* request) {
    if (slotText == nullptr || request == nullptr) {
        return 0;
    }
    return qos::Cycle<kFamily>::everyCondition(
        *request, [&](const auto&, const char* value) { return strcmp(slotText, value) == 0; });
}
