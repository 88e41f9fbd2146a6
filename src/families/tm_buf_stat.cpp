#include "nivex_qos/tm_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmTmBufStatQueryToEnd = 0;

namespace {

struct TmBufStat {
    using Record = QosTlmTmBufStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_TM_BUF;
    static constexpr uint32_t batchLimit = QOS_TLM_TM_BUF_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmTmBufStatQueryToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_tm_chip_buf_stat_obj,
                                         db_release_qos_tlm_tm_chip_buf_stat_object};
    static constexpr qos::Node container = {"tm-chip-buffer-usage-statisticss", 64};
    static constexpr qos::Node list = {"tm-chip-buffer-usage-statistics", 1};
    static constexpr qos::Node entry = {"tm-chip-buffer-usage-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::slotId, db_get_qos_tlm_tm_chip_buf_stat_slotId),
        qos::column(&Record::totalBuf, db_get_qos_tlm_tm_chip_buf_stat_totalBuf),
        qos::column(&Record::usedBuf, db_get_qos_tlm_tm_chip_buf_stat_usedBuf),
        qos::column(&Record::usedPct, db_get_qos_tlm_tm_chip_buf_stat_usedPct),
    };
    static_assert(qos::bytesRead(columns) + 4 /* padding */ == sizeof(Record),
                  "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("slot-id", 1, &Record::slotId),
        qos::leaf("total-buffer", 2, &Record::totalBuf),
        qos::leaf("used-buffer", 3, &Record::usedBuf),
        qos::leaf("used-percentage", 4, &Record::usedPct),
    };

    static constexpr std::tuple conditions = {
        qos::exactText("slot-id", &Record::slotId),
    };

    static constexpr qos::SlotKeys<Record, sizeof(Record::slotId)> keys = {
        &Record::slotId,
        {"[Tlm IsSentTmBufStat] parse string slot to num slot failed.",
         "[Tlm IsTmBufStatRecordCntOver] parse string slot to num slot failed.",
         "[Tlm IsRedundantTmBufStat] parse string slot to num slot failed.",
         "[Tlm IsSelfDefEvtTmBufStat] parse string slot to num slot failed."}};

    static constexpr std::tuple digest = {&Record::totalBuf, &Record::usedBuf, &Record::usedPct};

    static constexpr qos::Messages messages = QOS_TLM_FAMILY_MESSAGES("TmBufStat");

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadTmBufStatField, QOS_TLM_CheckTmBufStat,
                                                      QOS_TLM_GetTmBufStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryTmBufStatFromDb, TmBufStat)
QOS_TLM_DEFINE_STEPS(TmBufStat, TmBufStat)
QOS_TLM_DEFINE_READ(TmBufStat, TmBufStat)
QOS_TLM_DEFINE_START_NODES(TmBufStat, TmBufStat)

QOS_TLM_DEFINE_CHECKS(TmBufStat, TmBufStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetTmBufStatFieldValue, TmBufStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsTmBufStatRecordCntOver, TmBufStat)

// Unlike the other families' this one takes the text alone.
uint32_t QOS_TLM_IsConditionTmBufStat(const char* slotText, const QosTlmQueryParam* request) {
    if (slotText == nullptr || request == nullptr) {
        return 0;
    }
    return qos::Cycle<TmBufStat>::everyCondition(
        *request, [&](const auto& honoured, const char* value) { return honoured.matches(slotText, value); });
}
