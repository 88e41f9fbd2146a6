#include "nivex_qos/port_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmPortBufStatQueryToEnd = 0;

namespace {

using Record = QosTlmPortBufStat;

constexpr qos::Column kColumns[] = {QOS_DB_COLUMNS_PORT_BUF_STAT(QOS_COLUMN, port_buf_stat)};

constexpr qos::Leaf kLeaves[] = {
    {"slot-id", 1, QOS_FIELD(slotIdStr)},      {"interface-name", 2, QOS_FIELD(ifName)},
    {"total-buffer", 3, QOS_FIELD(totalBuff)}, {"current-used", 4, QOS_FIELD(currentUsed)},
    {"remained", 5, QOS_FIELD(remained)},      {"peak-used", 6, QOS_FIELD(peakUsed)},
    {"average-used", 7, QOS_FIELD(avgUsed)},
};

constexpr qos::Condition kConditions[] = {
    {"slot-id", qos::Match::exact, QOS_FIELD(slotIdStr)},
    {"interface-name", qos::Match::pattern, QOS_FIELD(ifName)},
};

constexpr qos::Field kDigest[] = {QOS_FIELD(totalBuff), QOS_FIELD(currentUsed), QOS_FIELD(remained),
                                  QOS_FIELD(peakUsed), QOS_FIELD(avgUsed)};

constexpr qos::Messages kMessages = [] {
    qos::Messages texts = QOS_TLM_FAMILY_MESSAGES("PortBufStat");
    texts.copyText = "[Tlm ReadPortBufStatField] strcpy error, ret=";
    return texts;
}();

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_PORT_BUF,
    .passIsOpen = &g_qosTlmPortBufStatQueryToEnd,
    .table = {db_create_qos_tlm_port_buf_stat_obj, db_release_qos_tlm_port_buf_stat_object},
    .containerNumber = 49,
    .columns = kColumns,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = QOS_FIELD(ifIndex)},
    .digest = kDigest,
    .messages = kMessages,
    .steps = {.gpbStartNode = QOS_TLM_GetPortBufStatGpbStartNode,
              .jsonStartNode = QOS_TLM_GetPortBufStatJsonStartNode,
              .read = QOS_TLM_ReadPortBufStatField,
              .check = QOS_TLM_CheckPortBufStat,
              .isCondition = QOS_TLM_IsConditionPortBufStat,
              .isRedundant = QOS_TLM_IsRedundantPortBufStat,
              .fieldValue = QOS_TLM_GetPortBufStatFieldValue,
              .addEntry = QOS_TLM_GetPortBufStatDataNode},
};

}  // namespace

QOS_TLM_DEFINE_STEPS(PortBufStat)
QOS_TLM_DEFINE_CONDITION(PortBufStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetPortBufStatFieldValue)
