#include "devhost/qosdb/record.h"

#include <limits>
#include <string>

namespace qosdb {

namespace {

// The head's bits: from 0 on one for each column that does not fit, from 28 on one for each of these that is a number.
// The cell then has the number, else SQLite's type.
constexpr size_t kNumbers = 28;
static_assert(kMostColumns <= kNumbers);
constexpr int kNoMemory = 0;  // in the place of a type: a text for which SQLite had no memory
static_assert(SQLITE_INTEGER != kNoMemory && SQLITE_TEXT != kNoMemory);

constexpr uint64_t largest(Kind kind) {
    switch (kind) {
        case Kind::UINT32:
            return std::numeric_limits<uint32_t>::max();
        case Kind::BYTE:
            return std::numeric_limits<uint8_t>::max();
        default:
            return std::numeric_limits<uint64_t>::max();
    }
}

const char* wanted(Kind kind) {
    switch (kind) {
        case Kind::UINT32:
            return "an integer from 0 to 4294967295";
        case Kind::UINT64:
            return "a 64-bit integer";
        case Kind::TEXT:
            return "a text";
        case Kind::BYTE:
            return "an integer from 0 to 255";
    }
    return "";
}

const char* nameOf(int type) {
    switch (type) {
        case SQLITE_INTEGER:
            return "an integer";
        case SQLITE_FLOAT:
            return "a real number";
        case SQLITE_TEXT:
            return "a text";
        case SQLITE_BLOB:
            return "a blob";
        default:
            return "NULL";
    }
}

}  // namespace

void decode(sqlite3_stmt* statement, TableId table, Cell* record) noexcept {
    uint64_t head = headOf(table);
    int column = 0;
    for (const Column& wanted : tableOf(table).columns) {
        Cell& cell = record[1 + column];
        // One look-up of the column instead of one per question; allowed, as nobody else uses the connection meanwhile.
        sqlite3_value* const value = sqlite3_column_value(statement, column);
        const int type = sqlite3_value_type(value);
        const uint64_t bit = uint64_t{1} << column;
        if (type == SQLITE_INTEGER) {
            cell.number = static_cast<uint64_t>(sqlite3_value_int64(value));
            if (wanted.kind == Kind::TEXT || cell.number > largest(wanted.kind)) [[unlikely]] {
                head |= bit | bit << kNumbers;
            }
        } else if (type == SQLITE_TEXT && wanted.kind == Kind::TEXT) {
            cell.text = reinterpret_cast<const char*>(sqlite3_value_text(value));
            if (cell.text == nullptr) [[unlikely]] {
                cell.number = kNoMemory;
                head |= bit;
            }
        } else {
            cell.number = static_cast<uint64_t>(type);
            head |= bit;
        }
        ++column;
    }
    record->number = head;
}

Failure faultOf(const Cell* record, TableId table, size_t column, const std::string& path) {
    const Table& described = tableOf(table);
    const Column& wrong = described.columns[column];
    const uint64_t value = record[1 + column].number;
    std::string is;
    if ((record->number >> (kNumbers + column) & 1) != 0) {
        // Only a number is shown: it is what can be wrong though its type is right.
        is = std::string(nameOf(SQLITE_INTEGER)) + " (" + std::to_string(static_cast<int64_t>(value)) + ")";
    } else if (value != kNoMemory) {
        is = nameOf(static_cast<int>(value));
    } else {
        return {SQLITE_NOMEM, "'" + path + "', table " + described.name + ": out of memory"};
    }
    return {SQLITE_MISMATCH, "'" + path + "', table " + described.name + ", column " + wrong.name + ": " + is +
                                 " where " + wanted(wrong.kind) + " is wanted"};
}

}  // namespace qosdb
