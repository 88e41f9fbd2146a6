#include "nivex_qos/port_buf_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmPortBufStatQueryToEnd = 0;

namespace {

struct PortBufStat {
    using Record = QosTlmPortBufStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_PORT_BUF;
    static constexpr uint32_t batchLimit = QOS_TLM_PORT_BUF_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmPortBufStatQueryToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_port_buf_stat_obj, db_release_qos_tlm_port_buf_stat_object};
    static constexpr qos::Node container = {"port-buffer-usage-statisticss", 49};
    static constexpr qos::Node list = {"port-buffer-usage-statistics", 1};
    static constexpr qos::Node entry = {"port-buffer-usage-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::slotId, db_get_qos_tlm_port_buf_stat_slotId),
        qos::column(&Record::slotIdStr, db_get_qos_tlm_port_buf_stat_slotIdStr),
        qos::column(&Record::ifIndex, db_get_qos_tlm_port_buf_stat_ifIndex),
        qos::column(&Record::ifName, db_get_qos_tlm_port_buf_stat_ifName),
        qos::column(&Record::totalBuff, db_get_qos_tlm_port_buf_stat_totalBuff),
        qos::column(&Record::currentUsed, db_get_qos_tlm_port_buf_stat_currentUsed),
        qos::column(&Record::remained, db_get_qos_tlm_port_buf_stat_remained),
        qos::column(&Record::peakUsed, db_get_qos_tlm_port_buf_stat_peakUsed),
        qos::column(&Record::avgUsed, db_get_qos_tlm_port_buf_stat_avgUsed),
    };
    static_assert(qos::bytesRead(columns) == sizeof(Record), "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("slot-id", 1, &Record::slotIdStr),      qos::leaf("interface-name", 2, &Record::ifName),
        qos::leaf("total-buffer", 3, &Record::totalBuff), qos::leaf("current-used", 4, &Record::currentUsed),
        qos::leaf("remained", 5, &Record::remained),      qos::leaf("peak-used", 6, &Record::peakUsed),
        qos::leaf("average-used", 7, &Record::avgUsed),
    };

    static constexpr std::tuple conditions = {
        qos::exactText("slot-id", &Record::slotIdStr),
        qos::pattern("interface-name", &Record::ifName),
    };

    static constexpr qos::InterfaceKeys<Record> keys = {&Record::ifIndex};

    static constexpr std::tuple digest = {&Record::totalBuff, &Record::currentUsed, &Record::remained,
                                          &Record::peakUsed, &Record::avgUsed};

    static constexpr qos::Messages messages = [] {
        qos::Messages texts = QOS_TLM_FAMILY_MESSAGES("PortBufStat");
        texts.copyText = "[Tlm ReadPortBufStatField] strcpy error, ret=";
        return texts;
    }();

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadPortBufStatField, QOS_TLM_CheckPortBufStat,
                                                      QOS_TLM_GetPortBufStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryPortBufStatFromDb, PortBufStat)
QOS_TLM_DEFINE_STEPS(PortBufStat, PortBufStat)
QOS_TLM_DEFINE_READ(PortBufStat, PortBufStat)
QOS_TLM_DEFINE_START_NODES(PortBufStat, PortBufStat)
QOS_TLM_DEFINE_CONDITION(PortBufStat, PortBufStat)
QOS_TLM_DEFINE_CHECKS(PortBufStat, PortBufStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetPortBufStatFieldValue, PortBufStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsPortBufStatRecordCntOver, PortBufStat)
