#include "plugin/families.h"

#include <ctime>

using fake::platform;
using nlohmann::json;

namespace {

// Columns by name, stamped from the list of tables.

template <typename T>
json toJson(const T& value) {
    return value;
}
json toJson(const std::optional<std::string>& value) {
    return value ? json(*value) : json();
}

template <typename T>
void assign(T& field, uint64_t value) {
    field = static_cast<T>(value);
}
void assign(std::optional<std::string>&, uint64_t) {}

template <typename T>
void assignText(T&, const std::optional<std::string>&) {}
void assignText(std::optional<std::string>& field, const std::optional<std::string>& text) {
    field = text;
}

#define VISIT_COLUMN(table, column, kind, role) \
    if (name == #column) {                      \
        return visit(row.column);               \
    }
#define VISIT_TABLE(table, columns)                                                    \
    template <typename Visit>                                                          \
    auto visitColumn(fake::row::table& row, const std::string& name, Visit visit) {    \
        columns(VISIT_COLUMN, table) throw std::invalid_argument("no column " + name); \
    }
QOS_DB_TABLES(VISIT_TABLE)

#define WITH_TABLE(name, columns)             \
    if (family.table == std::string(#name)) { \
        return use(platform.tables.name);     \
    }
template <typename Use>
auto withTable(const Family& family, Use use) {
    QOS_DB_TABLES(WITH_TABLE)
    throw std::invalid_argument("no table");
}

std::vector<Leaf> same(std::vector<std::pair<const char*, const char*>> leaves) {
    std::vector<Leaf> all;
    for (const auto& [name, column] : leaves) {
        all.push_back({name, column, column});
    }
    return all;
}

std::vector<Leaf> operator+(std::vector<Leaf> first, const std::vector<Leaf>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Family describe(Family family) {
    const std::string tag = family.tag;
    family.createObject = "[Tlm Get" + tag + "Iter] create obj failed, ret=";
    family.createIterator = "[Tlm Get" + tag + "Iter] create rootIterator failed, ret=";
    family.gpbStart = "[Tlm Get" + tag + "GpbStartNode] Create ";
    family.jsonStart = "[Tlm Get" + tag + "JsonStartNode] Create ";
    family.copyText = "[Tlm Read" + tag + "Field] strcpy error ret=";
    family.entryNode = "[Tlm Get" + tag + "DataNode] Create node2 failed.";
    return family;
}

const Leaf kName = {"interface-name", "ifName", "ifIndex"};
const Condition kPattern = {"interface-name", Match::pattern, "ifName"};

std::vector<std::string> queueDropColumns(bool keys) {
    std::vector<std::string> columns;
    if (keys) {
        columns = {"ifIndex", "ifName"};
    }
    for (int queue = 0; queue < 8; ++queue) {
        columns.push_back("queue" + std::to_string(queue) + "DropByts");
        columns.push_back("queue" + std::to_string(queue) + "DropPkts");
    }
    return columns;
}

std::vector<Leaf> queueDropLeaves() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (int queue = 0; queue < 8; ++queue) {
            all.push_back("queue" + std::to_string(queue) + "-drop-bytes");
            all.push_back("queue" + std::to_string(queue) + "-drop-packets");
        }
        return all;
    }();
    std::vector<Leaf> leaves = {kName};
    const auto columns = queueDropColumns(false);
    for (size_t i = 0; i < names.size(); ++i) {
        leaves.push_back({names[i].c_str(), columns[i], columns[i]});
    }
    return leaves;
}

std::vector<Family> describeAll() {
    std::vector<Family> all = {
        describe({"PortEcnStat",
                  "g_qosTlmPortEcnStatQueryToEnd",
                  0,
                  600,
                  "port_ecn_stat",
                  "port-ecn-statisticss",
                  "port-ecn-statistics",
                  {"ifIndex", "ifName", "packets"},
                  {kName, {"packets", "packets", "packets"}},
                  {kPattern},
                  {"packets"},
                  "ifName"}),
        describe({"PortBufStat",
                  "g_qosTlmPortBufStatQueryToEnd",
                  1,
                  200,
                  "port_buf_stat",
                  "port-buffer-usage-statisticss",
                  "port-buffer-usage-statistics",
                  {"slotId", "slotIdStr", "ifIndex", "ifName", "totalBuff", "currentUsed", "remained", "peakUsed",
                   "avgUsed"},
                  std::vector<Leaf>{{"slot-id", "slotIdStr", ""}, {"interface-name", "ifName", ""}} +
                      same({{"total-buffer", "totalBuff"},
                            {"current-used", "currentUsed"},
                            {"remained", "remained"},
                            {"peak-used", "peakUsed"},
                            {"average-used", "avgUsed"}}),
                  {{"slot-id", Match::exact, "slotIdStr"}, kPattern},
                  {"totalBuff", "currentUsed", "remained", "peakUsed", "avgUsed"},
                  "ifName"}),
        describe({"QueueBufStat",
                  "g_qosTlmQueBufStatQueryToEnd",
                  2,
                  200,
                  "queue_buf_stat",
                  "queue-buffer-usage-statisticss",
                  "queue-buffer-usage-statistics",
                  {"slotId", "slotIdStr", "ifIndex", "ifName", "queueId", "curUsed", "peakUsed", "avgUsed", "totalBuf"},
                  std::vector<Leaf>{{"slot-id", "slotIdStr", "slotId"}, kName} + same({{"queue-id", "queueId"},
                                                                                       {"current-used", "curUsed"},
                                                                                       {"peak-used", "peakUsed"},
                                                                                       {"average-used", "avgUsed"},
                                                                                       {"total-buffer", "totalBuf"}}),
                  {{"slot-id", Match::exact, "slotIdStr"}, kPattern, {"queue-id", Match::number, "queueId"}},
                  {"curUsed", "peakUsed", "avgUsed", "totalBuf"},
                  "ifName"}),
        describe({"QueueStat",
                  "g_qosTlmQueStatQueryToEnd",
                  3,
                  128,
                  "queue_stat",
                  "queue-statisticss",
                  "queue-statistics",
                  {"ifIndex", "ifName", "queueId", "passPackets", "passBytes", "passPktRate", "passBytRate",
                   "dropPackets", "dropBytes", "dropPktRate", "dropBytRate"},
                  std::vector<Leaf>{kName} + same({{"service-class", "queueId"},
                                                   {"pass-packets", "passPackets"},
                                                   {"pass-bytes", "passBytes"},
                                                   {"pass-packet-rate", "passPktRate"},
                                                   {"pass-byte-rate", "passBytRate"},
                                                   {"discard-packets", "dropPackets"},
                                                   {"discard-bytes", "dropBytes"},
                                                   {"discard-packet-rate", "dropPktRate"},
                                                   {"discard-byte-rate", "dropBytRate"}}),
                  {kPattern, {"service-class", Match::serviceClass, "queueId"}},
                  {"passPackets", "passBytes", "dropPackets", "dropBytes"},
                  "ifName"}),
        describe({"QueueDropStat",
                  "g_qosTlmQueDropStatQueryToEnd",
                  4,
                  65,
                  "queue_drop_stat",
                  "queue-drop-statisticss",
                  "queue-drop-statistics",
                  queueDropColumns(true),
                  queueDropLeaves(),
                  {kPattern},
                  queueDropColumns(false),
                  "ifName"}),
        describe({"IngPortDropStat",
                  "g_qosTlmIngStatQueryToEnd",
                  5,
                  400,
                  "ing_port_drop_stat",
                  "ing-port-drop-statisticss",
                  "ing-port-drop-statistics",
                  {"ifIndex", "ifName", "dropByts", "dropPkts"},
                  std::vector<Leaf>{kName} + same({{"drop-bytes", "dropByts"}, {"drop-packets", "dropPkts"}}),
                  {kPattern},
                  {"dropByts", "dropPkts"},
                  "ifName"}),
        describe({"TmBufStat",
                  "g_qosTlmTmBufStatQueryToEnd",
                  6,
                  100,
                  "tm_chip_buf_stat",
                  "tm-chip-buffer-usage-statisticss",
                  "tm-chip-buffer-usage-statistics",
                  {"slotId", "totalBuf", "usedBuf", "usedPct"},
                  std::vector<Leaf>{{"slot-id", "slotId", ""}} +
                      same({{"total-buffer", "totalBuf"}, {"used-buffer", "usedBuf"}, {"used-percentage", "usedPct"}}),
                  {{"slot-id", Match::exact, "slotId"}},
                  {"totalBuf", "usedBuf", "usedPct"},
                  "slotId"}),
        describe({"BufIngStat",
                  "g_qosTlmBufIngStatQueryRecordToEnd",
                  7,
                  150,
                  "ing_buf_usage_stat",
                  "intf-ing-buf-usage-statisticss",
                  "intf-ing-buf-usage-statistics",
                  {"if_index", "queue", "if_name", "is_lossless", "is_pfc_dynamic", "current_guaranteed",
                   "total_guaranteed", "current_buffer", "total_buffer", "current_headroom", "total_headroom"},
                  std::vector<Leaf>{{"interface-name", "if_name", "if_index"}} +
                      same({{"queue-id", "queue"},
                            {"pfc-dynamic", "is_pfc_dynamic"},
                            {"current-guaranteed", "current_guaranteed"},
                            {"total-guaranteed", "total_guaranteed"},
                            {"current-buffer", "current_buffer"},
                            {"total-buffer", "total_buffer"},
                            {"current-headroom", "current_headroom"},
                            {"total-headroom", "total_headroom"}}),
                  {{"interface-name", Match::pattern, "if_name"}, {"queue-id", Match::number, "queue"}},
                  {"is_pfc_dynamic", "current_guaranteed", "total_guaranteed", "current_buffer", "total_buffer",
                   "current_headroom", "total_headroom"},
                  "if_name"}),
        describe({"BufMonitorStat",
                  "g_qosTlmBufMonStatQueryToEnd",
                  8,
                  200,
                  "buffer_monitor_result",
                  "interface-monitoring-results",
                  "interface-monitoring-result",
                  {"if_index", "queue_index", "ifName", "used_buf", "percent", "time_stamp", "milli_second",
                   "start_used_buf", "start_percent", "start_time_stamp", "start_milli_second", "peak_used_buf",
                   "peak_percent", "peak_time_stamp", "peak_milli_second", "slot", "burst_number"},
                  same({{"interface-name", "ifName"},
                        {"queue-id", "queue_index"},
                        {"record-number", "=1"},
                        {"query-type", "=0"},
                        {"time", "@"},
                        {"buffer-usage", "used_buf"},
                        {"percent", "percent"},
                        {"burst-start-time", "@start_"},
                        {"burst-start-buffer", "start_used_buf"},
                        {"burst-start-buffer-percent", "start_percent"},
                        {"burst-peak-time", "@peak_"},
                        {"burst-peak-buffer", "peak_used_buf"},
                        {"burst-peak-buffer-percent", "peak_percent"},
                        {"slot-id", "slot"},
                        {"burst-number", "burst_number"}}),
                  {{"interface-name", Match::exact, "ifName"}, {"queue-id", Match::number, "queue_index"}},
                  {},
                  "ifName"}),
    };
    all[1].copyText = "[Tlm ReadPortBufStatField] strcpy error, ret=";
    all[2].entryNode = "[Tlm GetQueueBufStatStartNode] Create node2 failed.";
    all[2].noNumber = "[Tlm IsConditionQueueBufStat] [queue-id] parse string to num failed.";
    all[5].copyText = "[Tlm ReadIngPortDropStatField] strcpy error, ret=";
    all[7].noNumber = "[Tlm IsConditionBufIngStat] parse string to num failed.";
    Family& monitor = all[8];
    monitor.createObject = "[TLM GetBufMonitorStatIter] create obj failed, ret = ";
    monitor.createIterator = "[TLM GetBufMonitorStatIter] create iter failed, ret = ";
    monitor.gpbStart = "[Tlm GetBufMonitorGpbStartNode] Create ";
    monitor.jsonStart = "[TLM GetBufMonitorJsonStartNode] Create ";
    monitor.copyText = "[Tlm ReadBufMonitorStatField] strcpy error, ret=";
    monitor.entryNode = "[Tlm GetBufMonitorDataNode] Create node2 failed.";
    monitor.noNumber = "[Tlm IsConditionBufMonitorStat] parse string to num failed.";
    return all;
}

// The date and time of a moment whose columns begin so.
std::string timeText(const Family& family, size_t row, const std::string& prefix) {
    const auto seconds = valueOf(family, row, prefix + "time_stamp").get<time_t>();
    tm utc{};
    gmtime_r(&seconds, &utc);
    char text[64];
    const size_t length = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S.", &utc);
    snprintf(text + length, sizeof text - length, "%03u",
             valueOf(family, row, prefix + "milli_second").get<unsigned>());
    return text;
}

}  // namespace

const std::vector<Family> kFamilies = describeAll();

const Family& familyOf(uint32_t index) {
    return kFamilies.at(index);
}

std::string Family::columnMessage(const std::string& column, uint32_t sum) const {
    if (!isMonitor()) {
        return std::string("[Tlm Read") + tag + "Field] get field error, ret=" + std::to_string(sum) + ".";
    }
    static const std::vector<std::pair<std::string, std::string>> texts = {
        {"if_index", "interface index"},
        {"queue_index", "queue index"},
        {"ifName", "queue index"},
        {"used_buf", "used buffer"},
        {"percent", "percent"},
        {"time_stamp", "time stamp"},
        {"milli_second", "milli second"},
        {"start_used_buf", "start used buf"},
        {"start_percent", "start percent"},
        {"start_time_stamp", "start time stamp"},
        {"start_milli_second", "start mill second"},
        {"peak_used_buf", "peak used buf"},
        {"peak_percent", "peak percent"},
        {"peak_time_stamp", "peak time stamp"},
        {"peak_milli_second", "peak mill second"},
        {"slot", "slot"},
        {"burst_number", "burst number"},
    };
    for (const auto& [name, text] : texts) {
        if (name == column) {
            return "[DB][Read Qos Buffer Monitor Result From Object] Get " + text;
        }
    }
    return "";
}

json valueOf(const Family& family, size_t row, const std::string& column) {
    return withTable(family, [&](auto& table) {
        return visitColumn(table.at(row), column, [](auto& field) { return toJson(field); });
    });
}

void setValue(const Family& family, size_t row, const std::string& column, uint64_t value) {
    withTable(family,
              [&](auto& table) { visitColumn(table.at(row), column, [&](auto& field) { assign(field, value); }); });
}

void setText(const Family& family, size_t row, const std::string& column, std::optional<std::string> text) {
    withTable(family,
              [&](auto& table) { visitColumn(table.at(row), column, [&](auto& field) { assignText(field, text); }); });
}

size_t rowCount(const Family& family) {
    return withTable(family, [](auto& table) { return table.size(); });
}

void clearRows(const Family& family) {
    withTable(family, [](auto& table) { table.clear(); });
}

void pickRows(const Family& family, const std::vector<size_t>& rows) {
    withTable(family, [&](auto& table) {
        std::remove_reference_t<decltype(table)> picked;
        for (const size_t row : rows) {
            picked.push_back(table.at(row));
        }
        table = std::move(picked);
    });
}

std::optional<RowKey> keyOf(const Family& family, size_t row) {
    if (family.index == QOS_TLM_FAMILY_TM_BUF) {
        const std::string slot = valueOf(family, row, "slotId");
        unsigned first = 0;
        unsigned second = 0;
        const int numbers = sscanf(slot.c_str(), "%u/%u", &first, &second);
        const uint32_t number = numbers == 2 ? first * 1000 + second : first;  // as the fake device database does
        return numbers < 1 ? std::nullopt : std::optional(RowKey{number, number, 0});
    }
    const uint32_t interface = valueOf(family, row, family.index < 7 ? "ifIndex" : "if_index");
    if (!hasQueues(family)) {
        return RowKey{interface, interface, 0};
    }
    const uint32_t queue = valueOf(family, row,
                                   family.isMonitor()  ? "queue_index"
                                   : family.index == 7 ? "queue"
                                                       : "queueId");
    return RowKey{interface * 8 + queue, interface, queue};
}

bool hasQueues(const Family& family) {
    return family.index == 2 || family.index == 3 || family.index >= 7;
}

void addRow(const Family& family, uint32_t number) {
    withTable(family, [](auto& table) { table.emplace_back(); });
    const size_t row = rowCount(family) - 1;
    const uint32_t interface = hasQueues(family) ? number / 8 : number;
    uint64_t position = 0;
    for (const std::string& column : family.columns) {
        ++position;
        const bool slot = column == "slotId" || column == "slotIdStr";
        if (column == "ifIndex" || column == "if_index") {
            setValue(family, row, column, number == 2 ? 0x1FFFFFFF : interface + 1);
        } else if (column == "queueId" || column == "queue" || column == "queue_index") {
            setValue(family, row, column, number % 8);
        } else if (column == "is_lossless" || column == "is_pfc_dynamic") {
            setValue(family, row, column, 1);
        } else if (slot && family.index == 6) {
            // The fake device database makes the same number of both forms.
            setText(family, row, column,
                    number % 2 == 0 ? std::to_string(number)
                                    : std::to_string(number / 1000) + "/" + std::to_string(number % 1000));
        } else if (slot) {
            setValue(family, row, column, number % 3);
            setText(family, row, column, "s" + std::to_string(number % 3));
        } else if (column == family.nameColumn) {
            setText(family, row, column, number == 2 ? std::string(31, 'x') : "e" + std::to_string(interface));
        } else if (column.find("time_stamp") != std::string::npos) {
            setValue(family, row, column, 1'709'802'302 + number);
        } else {
            setValue(family, row, column, number == 1 ? ~0ull : number == 2 ? 0 : number % 50 + position);
        }
        if (column.find("milli_second") != std::string::npos) {
            setValue(family, row, column, number == 1 ? 1234 : 7);
        }
    }
}

void addRows(const Family& family, uint32_t count) {
    for (uint32_t number = 0; number < count; ++number) {
        addRow(family, number);
    }
}

nlohmann::ordered_json entryOf(const Family& family, size_t row) {
    nlohmann::ordered_json entry;
    for (const Leaf& leaf : family.leaves) {
        if (leaf.column[0] == '=') {
            entry[leaf.name] = std::stoi(leaf.column.substr(1));
        } else if (leaf.column[0] == '@') {
            entry[leaf.name] = timeText(family, row, leaf.column.substr(1));
        } else if (leaf.column == "is_pfc_dynamic") {
            entry[leaf.name] = valueOf(family, row, leaf.column) != 0;
        } else {
            entry[leaf.name] = valueOf(family, row, leaf.column);
        }
    }
    return entry;
}

uint32_t callEntryPoint(const Family& family, const QosTlmQueryParam& request) {
    return GLOBAL(g_qosTlmTaskMap)[family.index].queryFunc(1, 2, &request);
}

void runPass(const Family& family, const QosTlmQueryParam& request) {
    while (callEntryPoint(family, request) == QOS_TLM_RESULT_MORE) {
    }
    ASSERT_EQ(*pluginSymbolAs<uint32_t*>(family.flag), 0u);
}

std::vector<json> takeEntries(const Family& family, uint32_t encodeType, bool allCount) {
    std::vector<json> all;
    for (const auto& [moduleId, sample] : platform.uploads) {
        const auto entries = readEntries(sample, encodeType, family.container, family.list);
        EXPECT_TRUE(sample.recordCount == entries.size() || !allCount);
        EXPECT_LE(sample.dataLen, QOS_TLM_PAYLOAD_SIZE);
        all.insert(all.end(), entries.begin(), entries.end());
    }
    platform.uploads.clear();
    return all;
}

std::vector<size_t> deliveredRows(const Family& family, const QosTlmQueryParam& request) {
    platform.uploads.clear();
    runPass(family, request);
    std::vector<size_t> rows;
    size_t row = 0;  // entries come in the rows' order, so the next one is nearly always found at once
    for (const json& entry : takeEntries(family, request.encodeType)) {
        const size_t all = rowCount(family);
        size_t tried = 0;
        while (tried < all && !sameJson(entry, json(entryOf(family, row % all)))) {
            ++row;
            ++tried;
        }
        EXPECT_LT(tried, all) << entry << " is no row of the table";
        rows.push_back(row++ % all);
    }
    return rows;
}
