/*
 * A record of a table as the accessors read it: taken from SQLite once, each value then a load away.
 *
 * Cells of eight bytes, one behind the other: the head, then the columns in the list's order. The head tells the table
 * and the columns whose values do not fit their kinds, so that one comparison shows that a record is of the right table
 * and sound. In the cell of a value that does not fit is what stands there instead.
 */
#ifndef DEVHOST_QOSDB_RECORD_H
#define DEVHOST_QOSDB_RECORD_H

#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "devhost/qosdb/report.h"
#include "devhost/qosdb/tables.h"

namespace qosdb {

union Cell {
    uint64_t number;
    const char* text;
};

inline constexpr size_t kMostColumns = [] {
    size_t most = 0;
    for (const Table& table : kTables) {
        most = std::max(most, table.columns.size());
    }
    return most;
}();

/* Cells of a record. */
constexpr size_t cellsOf(TableId table) {
    return 1 + tableOf(table).columns.size();
}

/* The head of a record without faults. */
constexpr uint64_t headOf(TableId table) {
    return uint64_t{indexOf(table) + 1} << 56;
}

/* Stands for no record: its head is no table's. */
inline constexpr Cell kNoRecord[1] = {{.number = 0}};

constexpr bool isRecordOf(const Cell* record, TableId table) {
    return record->number >> 56 == headOf(table) >> 56;
}

/* Whether the value of a column fits its kind. */
constexpr bool fits(const Cell* record, size_t column) {
    return (record->number >> column & 1) == 0;
}

/*
 * The row where a statement of selectSql stands, to cellsOf(table) cells. Texts are SQLite's, as long as it leaves
 * them: to the statement's next step.
 */
void decode(sqlite3_stmt* statement, TableId table, Cell* record) noexcept;

/* What is wrong with a value that does not fit, in a record of the file at path. */
Failure faultOf(const Cell* record, TableId table, size_t column, const std::string& path);

}  // namespace qosdb

#endif
