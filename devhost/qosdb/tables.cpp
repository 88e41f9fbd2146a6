#include "devhost/qosdb/tables.h"

namespace qosdb {

namespace {

std::string columnNames(const Table& table) {
    std::string names;
    for (const Column& column : table.columns) {
        names += (names.empty() ? "" : ", ") + std::string(column.name);
    }
    return names;
}

}  // namespace

std::string createSql(const Table& table) {
    std::string columns;
    std::string keys;
    for (const Column& column : table.columns) {
        // INT, not INTEGER: a lone INTEGER key would become the rowid, and rows would come back in the key's order.
        columns += std::string(column.name) + (column.kind == Kind::TEXT ? " TEXT" : " INT") + " NOT NULL";
        if (column.role == Role::QUEUE) {
            columns +=
                std::string(" CHECK (") + column.name + " BETWEEN 0 AND " + std::to_string(QOS_DB_LAST_QUEUE) + ")";
        }
        columns += ", ";
        if (column.role != Role::VALUE) {
            keys += (keys.empty() ? "" : ", ") + std::string(column.name);
        }
    }
    return std::string("CREATE TABLE IF NOT EXISTS ") + table.name + " (" + columns + "PRIMARY KEY (" + keys + "))";
}

// Names stay unquoted: SQLite takes a quoted name that is no column for a text, and a missing column would not show.
std::string selectSql(const Table& table) {
    return "SELECT " + columnNames(table) + " FROM " + table.name + " ORDER BY rowid";
}

std::string insertSql(const Table& table) {
    std::string parameters = "?";
    for (size_t i = 1; i < table.columns.size(); ++i) {
        parameters += ", ?";
    }
    return std::string("INSERT INTO ") + table.name + " (" + columnNames(table) + ") VALUES (" + parameters + ")";
}

}  // namespace qosdb
