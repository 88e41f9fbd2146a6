#include "nivex_qos/port_ecn_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmPortEcnStatQueryToEnd = 0;

namespace {

struct PortEcnStat {
    using Record = QosTlmPortEcnStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_PORT_ECN;
    static constexpr uint32_t batchLimit = QOS_TLM_PORT_ECN_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmPortEcnStatQueryToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_port_ecn_stat_obj, db_release_qos_tlm_port_ecn_stat_object};
    static constexpr qos::Node container = {"port-ecn-statisticss", 55};
    static constexpr qos::Node list = {"port-ecn-statistics", 1};
    static constexpr qos::Node entry = {"port-ecn-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::ifIndex, db_get_qos_tlm_port_ecn_stat_ifIndex),
        qos::column(&Record::ifName, db_get_qos_tlm_port_ecn_stat_ifName),
        qos::column(&Record::packets, db_get_qos_tlm_port_ecn_stat_packets),
    };
    static_assert(qos::bytesRead(columns) + 4 /* padding */ == sizeof(Record),
                  "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("interface-name", 2, &Record::ifName, &Record::ifIndex),
        qos::leaf("packets", 3, &Record::packets),
    };

    static constexpr std::tuple conditions = {
        qos::pattern("interface-name", &Record::ifName),
    };

    static constexpr qos::InterfaceKeys<Record> keys = {&Record::ifIndex};

    static constexpr std::tuple digest = {&Record::packets};

    static constexpr qos::Messages messages = QOS_TLM_FAMILY_MESSAGES("PortEcnStat");

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadPortEcnStatField, QOS_TLM_CheckPortEcnStat,
                                                      QOS_TLM_GetPortEcnStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryPortEcnStatFromDb, PortEcnStat)
QOS_TLM_DEFINE_STEPS(PortEcnStat, PortEcnStat)
QOS_TLM_DEFINE_READ(PortEcnStat, PortEcnStat)
QOS_TLM_DEFINE_START_NODES(PortEcnStat, PortEcnStat)
QOS_TLM_DEFINE_CONDITION(PortEcnStat, PortEcnStat)
QOS_TLM_DEFINE_CHECKS(PortEcnStat, PortEcnStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetPortEcnStatFieldValue, PortEcnStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsPortEcnStatRecordCntOver, PortEcnStat)
