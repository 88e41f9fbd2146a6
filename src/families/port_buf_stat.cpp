#include "nivex_qos/port_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmPortBufStatQueryToEnd = 0;

namespace {

using Record = QosTlmPortBufStat;
using Columns = Record;

constexpr qos::Column<Record> kColumns[] = {QOS_DB_COLUMNS_PORT_BUF_STAT(QOS_COLUMN, port_buf_stat)};

constexpr qos::Leaf<Record> kLeaves[] = {
    {"slot-id", 1, &Record::slotIdStr},      {"interface-name", 2, &Record::ifName},
    {"total-buffer", 3, &Record::totalBuff}, {"current-used", 4, &Record::currentUsed},
    {"remained", 5, &Record::remained},      {"peak-used", 6, &Record::peakUsed},
    {"average-used", 7, &Record::avgUsed},
};

constexpr qos::Condition<Record> kConditions[] = {
    {"slot-id", qos::Match::exact, &Record::slotIdStr},
    {"interface-name", qos::Match::pattern, &Record::ifName},
};

constexpr qos::Field<Record> kDigest[] = {&Record::totalBuff, &Record::currentUsed, &Record::remained,
                                          &Record::peakUsed, &Record::avgUsed};

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
    .keys = {.interface = &Record::ifIndex},
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
