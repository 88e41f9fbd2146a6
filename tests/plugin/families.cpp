#include "plugin/families.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <map>
#include <set>

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

#define WITH_TABLE(name, columns)         \
    if (family.table == #name) {          \
        return use(platform.tables.name); \
    }
template <typename Use>
auto withTable(const Family& family, Use use) {
    QOS_DB_TABLES(WITH_TABLE)
    throw std::invalid_argument("no table");
}

Family describe(const nlohmann::ordered_json& from, uint32_t index) {
    Family family;
    family.index = index;
    for (const auto& [key, text] : {std::pair("tag", &family.tag),
                                    {"flag", &family.flag},
                                    {"table", &family.table},
                                    {"container", &family.container},
                                    {"list", &family.list},
                                    {"name", &family.nameColumn}}) {
        *text = from.at(key);
    }
    family.batchLimit = from.at("limit");
    family.columns = from.at("columns");
    family.digest = from.at("digest");
    family.columnMessages = from.value("columnMessages", std::vector<std::string>());
    for (const auto& [name, column] : from.at("leaves").items()) {
        const bool isPair = column.is_array();
        family.leaves.push_back({name, isPair ? column[0] : column, isPair ? column[1] : column});
    }
    const std::map<std::string, Match> matches = {{"pattern", Match::pattern},
                                                  {"exact", Match::exact},
                                                  {"number", Match::number},
                                                  {"serviceClass", Match::serviceClass}};
    for (const auto& [field, condition] : from.at("conditions").items()) {
        family.conditions.push_back({field, matches.at(condition[0]), condition[1]});
    }
    const auto message = [&](const char* key, const std::string& before, const std::string& after) {
        return from.value(key, "[Tlm " + before + family.tag + after);
    };
    family.createObject = message("createObject", "Get", "Iter] create obj failed, ret=");
    family.createIterator = message("createIterator", "Get", "Iter] create rootIterator failed, ret=");
    family.gpbStart = message("gpbStart", "Get", "GpbStartNode] Create ");
    family.jsonStart = message("jsonStart", "Get", "JsonStartNode] Create ");
    family.copyText = message("copyText", "Read", "Field] strcpy error ret=");
    family.entryNode = message("entryNode", "Get", "DataNode] Create node2 failed.");
    family.noNumber = from.value("noNumber", "");
    return family;
}

std::vector<Family> describeAll() {
    std::ifstream file(NIVEX_QOS_FAMILIES_FILE);
    std::vector<Family> all;
    for (const auto& family : nlohmann::ordered_json::parse(file)) {
        all.push_back(describe(family, static_cast<uint32_t>(all.size())));
    }
    return all;
}

const std::set<std::string> kQueueColumns = {"queueId", "queue", "queue_index"};

// The family's column of these, or nothing.
std::string firstOf(const Family& family, const std::set<std::string>& names) {
    const auto has = [&](const std::string& column) { return names.count(column) != 0; };
    const auto found = std::find_if(family.columns.begin(), family.columns.end(), has);
    return found == family.columns.end() ? "" : *found;
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

std::string stepName(const Family& family, const std::string& before, const std::string& after) {
    const bool monitor = family.isMonitor();
    const std::string tag = monitor && before == "Query" ? "TmBufMonitorStat"
                            : monitor && before == "Get" && (after == "GpbStartNode" || after == "JsonStartNode")
                                ? "BufMonitor"
                            : monitor && after == "RecordCntOver"                                ? "BufMon"
                            : family.index == QOS_TLM_FAMILY_QUEUE_BUF && after == "FieldValue"  ? "QueBufStat"
                            : family.index == QOS_TLM_FAMILY_QUEUE_DROP && after == "FieldValue" ? "QueDropStat"
                                                                                                 : family.tag;
    return "QOS_TLM_" + before + tag + after;
}

std::string Family::columnMessage(const std::string& column, uint32_t sum) const {
    if (columnMessages.empty()) {
        return "[Tlm Read" + tag + "Field] get field error, ret=" + std::to_string(sum) + ".";
    }
    const auto place = static_cast<size_t>(std::find(columns.begin(), columns.end(), column) - columns.begin());
    return "[DB][Read Qos Buffer Monitor Result From Object] Get " + columnMessages.at(place);
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
    const uint32_t interface = valueOf(family, row, firstOf(family, {"ifIndex", "if_index"}));
    if (!hasQueues(family)) {
        return RowKey{interface, interface, 0};
    }
    const uint32_t queue = valueOf(family, row, firstOf(family, kQueueColumns));
    return RowKey{interface * 8 + queue, interface, queue};
}

bool hasQueues(const Family& family) {
    return !firstOf(family, kQueueColumns).empty();
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
        } else if (kQueueColumns.count(column) != 0) {
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
        if (!allCount && sample.dataLen <= 2) {
            continue;
        }
        const auto entries = readEntries(sample, encodeType, family.container, family.list);
        EXPECT_TRUE(sample.recordCount == entries.size() || !allCount);
        EXPECT_LE(sample.dataLen, QOS_TLM_PAYLOAD_SIZE);
        all.insert(all.end(), entries.begin(), entries.end());
    }
    platform.uploads.clear();
    return all;
}

size_t entriesThatAreNoRow(const Family& family, const std::vector<json>& entries) {
    size_t row = 0;
    size_t others = 0;
    for (const json& entry : entries) {
        const size_t from = row;
        while (row < rowCount(family) && !sameJson(entry, json(entryOf(family, row)))) {
            ++row;
        }
        others += row == rowCount(family) ? 1u : 0u;
        row = row == rowCount(family) ? from : row + 1;
    }
    return others;
}

std::vector<uint32_t> sentKeys(uint32_t family) {
    std::vector<uint32_t> keys;
    for (const QosTlmHashNode& bucket : GLOBAL(g_qosTlmHashData)[family]) {
        for (const QosTlmHashNode* node = bucket.next; node != nullptr; node = node->next) {
            keys.push_back(node->key);
        }
    }
    return keys;
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
