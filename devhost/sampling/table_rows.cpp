#include "devhost/sampling/table_rows.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
#include <variant>

#include "nivex_qos/paths.h"
#include "platform/qos_db.h"

namespace host {

namespace {

using Text = uint32_t (*)(void*, const char**);
using Number = uint32_t (*)(void*, uint32_t*);

struct KeyedTable {
    uint32_t (*create)(uint32_t, uint32_t, void**);
    void (*release)(void*);
    std::vector<std::variant<Text, Number>> keys;  // in the order of the schema
};

#define TABLE(name) db_create_qos_tlm_##name##_obj, db_release_qos_tlm_##name##_object
#define COLUMN(name, column) db_get_qos_tlm_##name##_##column

// In the order of the families.
const std::array<KeyedTable, QOS_TLM_FAMILY_NUM>& keyedTables() {
    static const std::array<KeyedTable, QOS_TLM_FAMILY_NUM> tables = {{
        {TABLE(port_ecn_stat), {COLUMN(port_ecn_stat, ifName)}},
        {TABLE(port_buf_stat), {COLUMN(port_buf_stat, slotIdStr), COLUMN(port_buf_stat, ifName)}},
        {TABLE(queue_buf_stat),
         {COLUMN(queue_buf_stat, slotIdStr), COLUMN(queue_buf_stat, ifName), COLUMN(queue_buf_stat, queueId)}},
        {TABLE(queue_stat), {COLUMN(queue_stat, ifName), COLUMN(queue_stat, queueId)}},
        {TABLE(queue_drop_stat), {COLUMN(queue_drop_stat, ifName)}},
        {TABLE(ing_port_drop_stat), {COLUMN(ing_port_drop_stat, ifName)}},
        {TABLE(tm_chip_buf_stat), {COLUMN(tm_chip_buf_stat, slotId)}},
        {TABLE(ing_buf_usage_stat), {COLUMN(ing_buf_usage_stat, if_name), COLUMN(ing_buf_usage_stat, queue)}},
        {TABLE(buffer_monitor_result),
         {COLUMN(buffer_monitor_result, ifName), COLUMN(buffer_monitor_result, queue_index)}},
    }};
    return tables;
}

#undef TABLE
#undef COLUMN

bool readKey(void* object, const std::variant<Text, Number>& key, std::vector<std::string>& keys) {
    if (const auto* const text = std::get_if<Text>(&key)) {
        const char* value = nullptr;
        if ((*text)(object, &value) != 0) {
            return false;
        }
        keys.emplace_back(value);
        return true;
    }
    uint32_t value = 0;
    if (std::get<Number>(key)(object, &value) != 0) {
        return false;
    }
    keys.push_back(std::to_string(value));
    return true;
}

bool readRows(void* object, const KeyedTable& table, std::vector<RowKey>& rows) {
    void* iterator = nullptr;
    if (db_create_root_iter(object, nullptr, nullptr, &iterator) != 0) {
        return false;
    }
    uint32_t code = 0;
    while ((code = db_root_iterator_next(iterator)) == 0) {
        std::vector<std::string> keys;
        for (const auto& key : table.keys) {
            if (!readKey(object, key, keys)) {
                return false;
            }
        }
        rows.push_back(rowKeyOf(keys));
    }
    return code == QOS_DB_END;
}

}  // namespace

std::vector<std::vector<std::string>> TableRows::gone(std::string_view alias) {
#define PATH(NAME, list, entryPoint, queryFromDb, batchLimit) list,
    static constexpr std::array<std::string_view, QOS_TLM_FAMILY_NUM> kAliases = {QOS_TLM_PATHS(PATH)};
#undef PATH
    const auto known = std::ranges::find(kAliases, alias);
    if (known == kAliases.end()) {
        return {};
    }
    const KeyedTable& table = keyedTables().at(static_cast<size_t>(known - kAliases.begin()));
    void* object = nullptr;
    if (table.create(5, 0, &object) != 0) {
        return {};
    }
    std::vector<RowKey> rows;
    const bool complete = readRows(object, table, rows);
    table.release(object);
    if (!complete) {
        return {};
    }
    std::ranges::sort(rows);
    std::vector<std::vector<std::string>> gone;
    std::vector<RowKey> missing;
    std::ranges::set_difference(rows_, rows, std::back_inserter(missing));
    std::ranges::transform(missing, std::back_inserter(gone), keysOf);
    rows_ = std::move(rows);
    return gone;
}

}  // namespace host
