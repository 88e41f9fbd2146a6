/*
 * The tables of the QoS statistics database at run time, expanded from the one list in platform/qos_db_tables.h, and
 * the SQL that creates, reads and fills them. Constant data; free of state, usable from any thread.
 */
#ifndef DEVHOST_QOSDB_TABLES_H
#define DEVHOST_QOSDB_TABLES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/qos_db_tables.h"

namespace qosdb {

/* The words of the list. */
enum class Kind : uint8_t { UINT32, UINT64, TEXT, BYTE };
enum class Role : uint8_t { KEY, QUEUE, VALUE };

struct Column {
    const char* name;
    Kind kind;
    Role role;
};

struct Table {
    const char* name;
    std::span<const Column> columns;
};

/* Position in kTables. */
enum class TableId : uint8_t {
#define QOSDB_TABLE_ID(table, columns) table,
    QOS_DB_TABLES(QOSDB_TABLE_ID)
#undef QOSDB_TABLE_ID
};

#define QOSDB_COLUMN(table, column, kind, role) {#column, Kind::kind, Role::role},
#define QOSDB_COLUMNS(table, columns) inline constexpr Column kColumnsOf_##table[] = {columns(QOSDB_COLUMN, table)};
QOS_DB_TABLES(QOSDB_COLUMNS)
#undef QOSDB_COLUMNS
#undef QOSDB_COLUMN

inline constexpr Table kTables[] = {
#define QOSDB_TABLE(table, columns) {#table, kColumnsOf_##table},
    QOS_DB_TABLES(QOSDB_TABLE)
#undef QOSDB_TABLE
};

inline constexpr size_t kTableCount = std::size(kTables);

constexpr size_t indexOf(TableId id) {
    return static_cast<size_t>(id);
}
constexpr const Table& tableOf(TableId id) {
    return kTables[indexOf(id)];
}

/* CREATE TABLE IF NOT EXISTS, with the KEY and QUEUE columns as its primary key; it refuses queues that are none. */
std::string createSql(const Table& table);

/* SELECT of all columns in the list's order, rows in the order in which they were written. */
std::string selectSql(const Table& table);

/* INSERT with one parameter per column, in the list's order. */
std::string insertSql(const Table& table);

}  // namespace qosdb

#endif
