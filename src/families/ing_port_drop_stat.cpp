#include "nivex_qos/ing_port_drop_stat.h"

#include "families/cycle.h"

uint32_t g_qosTlmIngStatQueryToEnd = 0;

namespace {

struct IngPortDropStat {
    using Record = QosTlmIngPortDropStat;

    static constexpr uint32_t index = QOS_TLM_FAMILY_ING_PORT_DROP;
    static constexpr uint32_t batchLimit = QOS_TLM_ING_PORT_DROP_STAT_BATCH_LIMIT;
    static constexpr bool endsByPayload = false;
    static constexpr uint32_t* queryToEnd = &g_qosTlmIngStatQueryToEnd;

    static constexpr qos::Table table = {db_create_qos_tlm_ing_port_drop_stat_obj,
                                         db_release_qos_tlm_ing_port_drop_stat_object};
    static constexpr qos::Node container = {"ing-port-drop-statisticss", 53};
    static constexpr qos::Node list = {"ing-port-drop-statistics", 1};
    static constexpr qos::Node entry = {"ing-port-drop-statistics", 1};

    static constexpr std::tuple columns = {
        qos::column(&Record::ifIndex, db_get_qos_tlm_ing_port_drop_stat_ifIndex),
        qos::column(&Record::ifName, db_get_qos_tlm_ing_port_drop_stat_ifName),
        qos::column(&Record::dropBytes, db_get_qos_tlm_ing_port_drop_stat_dropByts),
        qos::column(&Record::dropPkts, db_get_qos_tlm_ing_port_drop_stat_dropPkts),
    };
    static_assert(qos::bytesRead(columns) + 4 /* padding */ == sizeof(Record),
                  "every field of the record has its column");

    static constexpr std::tuple leaves = {
        qos::leaf("interface-name", 1, &Record::ifName, &Record::ifIndex),
        qos::leaf("drop-bytes", 2, &Record::dropBytes),
        qos::leaf("drop-packets", 3, &Record::dropPkts),
    };

    static constexpr std::tuple conditions = {
        qos::pattern("interface-name", &Record::ifName),
    };

    static constexpr qos::InterfaceKeys<Record> keys = {&Record::ifIndex};

    static constexpr std::tuple digest = {&Record::dropBytes, &Record::dropPkts};

    static constexpr qos::Messages messages = [] {
        qos::Messages texts = QOS_TLM_FAMILY_MESSAGES("IngPortDropStat");
        texts.copyText = "[Tlm ReadIngPortDropStatField] strcpy error, ret=";
        return texts;
    }();

    static constexpr qos::NamedSteps<Record> steps = {QOS_TLM_ReadIngPortDropStatField, QOS_TLM_CheckIngPortDropStat,
                                                      QOS_TLM_GetIngPortDropStatDataNode};
};

}  // namespace

QOS_TLM_DEFINE_QUERY(QOS_TLM_QueryIngPortDropStatFromDb, IngPortDropStat)
QOS_TLM_DEFINE_STEPS(IngPortDropStat, IngPortDropStat)
QOS_TLM_DEFINE_READ(IngPortDropStat, IngPortDropStat)
QOS_TLM_DEFINE_START_NODES(IngPortDropStat, IngPortDropStat)
QOS_TLM_DEFINE_CONDITION(IngPortDropStat, IngPortDropStat)
QOS_TLM_DEFINE_CHECKS(IngPortDropStat, IngPortDropStat)
QOS_TLM_DEFINE_FIELD_VALUE(QOS_TLM_GetIngPortDropStatFieldValue, IngPortDropStat)
QOS_TLM_DEFINE_BATCH_FULL(QOS_TLM_IsIngPortDropStatRecordCntOver, IngPortDropStat)
