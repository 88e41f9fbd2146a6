#include "bench/tables.h"

#include <fmt/core.h>

#include <cstddef>
#include <cstring>
#include <random>
#include <span>

namespace bench {

Tables tables;

namespace {

constexpr uint32_t kQueues = 8;

// Where each column stands in a row. Accessors are one generic function over this, as in a database that makes its
// accessors from a schema: handle, table, record and type are checked, then the value is copied.
struct Column {
    qosdb::Kind kind;
    size_t offset;
};

#define BENCH_COLUMN(table, column, kind, role) {qosdb::Kind::kind, offsetof(qosdb::row::table, column)},
#define BENCH_POSITION(table, column, kind, role) column,
#define BENCH_COLUMNS(table, columns)                                       \
    constexpr Column kColumnsOf_##table[] = {columns(BENCH_COLUMN, table)}; \
    enum class PositionIn_##table : size_t{columns(BENCH_POSITION, table)};
QOS_DB_TABLES(BENCH_COLUMNS)
#undef BENCH_COLUMNS
#undef BENCH_POSITION
#undef BENCH_COLUMN

struct Table {
    std::span<const Column> columns;
    size_t rowSize;
};

#define BENCH_TABLE(table, columns) {kColumnsOf_##table, sizeof(qosdb::row::table)},
constexpr Table kTables[] = {QOS_DB_TABLES(BENCH_TABLE)};
#undef BENCH_TABLE

// An object and its iterator.
struct Cursor {
    static constexpr uint32_t kAlive = 0x716F7364;
    uint32_t state;
    qosdb::TableId table;
    const char* rows;
    size_t count;
    size_t position;  // 1 = on the first row
};

template <class Row>
uint32_t create(const std::vector<Row>& rows, void** object) {
    *object = new Cursor{Cursor::kAlive, Row::kTable, reinterpret_cast<const char*>(rows.data()), rows.size(), 0};
    return 0;
}

void release(void* object) {
    delete static_cast<Cursor*>(object);
}

[[gnu::noinline]] uint32_t get(const void* object, qosdb::TableId table, size_t column, qosdb::Kind kind, void* value) {
    const auto* cursor = static_cast<const Cursor*>(object);
    if (cursor == nullptr || value == nullptr || cursor->state != Cursor::kAlive || cursor->table != table ||
        cursor->position - 1 >= cursor->count) {
        return 1;
    }
    const Table& layout = kTables[qosdb::indexOf(table)];
    if (column >= layout.columns.size() || layout.columns[column].kind != kind) {
        return 1;
    }
    const char* cell = cursor->rows + (cursor->position - 1) * layout.rowSize + layout.columns[column].offset;
    switch (kind) {
        case qosdb::Kind::UINT32:
            memcpy(value, cell, sizeof(uint32_t));
            break;
        case qosdb::Kind::UINT64:
            memcpy(value, cell, sizeof(uint64_t));
            break;
        case qosdb::Kind::BYTE:
            memcpy(value, cell, sizeof(uint8_t));
            break;
        case qosdb::Kind::TEXT:
            *static_cast<const char**>(value) = reinterpret_cast<const std::string*>(cell)->c_str();
            break;
    }
    return 0;
}

// Counters of all magnitudes that a device shows, none of them 0.
class Counters {
  public:
    uint64_t next() {
        const uint64_t magnitude = 10 + random_() % 30;
        return (random_() & ((uint64_t{1} << magnitude) - 1)) | (uint64_t{1} << magnitude);
    }

  private:
    std::mt19937_64 random_{20};
};

std::string nameOf(uint32_t interface) {
    return fmt::format("GE{}/0/{}", 1 + interface / 64, interface % 64);
}

template <class Row>
void fill(std::vector<Row>& table, size_t rows, Magnitude numbers, int textLength) {
    constexpr uint64_t kLongYear = 253'402'300'800;  // 10000-01-01
    const bool longTimes = textLength > 15;
    Counters counters;
    table.clear();
    for (uint32_t number = 1; number <= rows; ++number) {
        Row& row = table.emplace_back();
        Row::forEachColumn(row, [&]<class Field>(Field& field) {
            if constexpr (std::is_same_v<Field, std::string>) {
                field = fmt::format("{:0{}}", number, textLength);  // a slot as well as a name
            } else if (numbers == Magnitude::largest) {
                field = static_cast<Field>(-static_cast<Field>(number));
            } else if constexpr (std::is_same_v<Field, uint64_t>) {
                field = numbers == Magnitude::ordinary ? counters.next() : 0;
            } else {
                field = static_cast<Field>(number);
            }
        });
        if constexpr (requires { row.is_lossless; }) {
            row.is_lossless = 1;
        }
        if constexpr (requires { row.milli_second; }) {
            if (longTimes) {
                row.time_stamp = row.start_time_stamp = row.peak_time_stamp = kLongYear;
                row.milli_second = row.start_milli_second = row.peak_milli_second = UINT32_MAX;
            }
        }
    }
}

}  // namespace

void fillEveryTable(size_t rows, Magnitude numbers, int textLength) {
#define BENCH_FILL(table, columns) fill(tables.table, rows, numbers, textLength);
    QOS_DB_TABLES(BENCH_FILL)
#undef BENCH_FILL
}

void fillQueueStat(size_t rows, uint32_t firstInterface) {
    Counters counters;
    tables.queue_stat.clear();
    for (size_t i = 0; i < rows; ++i) {
        const auto interface = firstInterface + static_cast<uint32_t>(i) / kQueues;
        tables.queue_stat.push_back({interface, nameOf(interface), static_cast<uint32_t>(i) % kQueues, counters.next(),
                                     counters.next(), counters.next(), counters.next(), counters.next(),
                                     counters.next(), counters.next(), counters.next()});
    }
}

void fillQueueDropStat(size_t rows) {
    Counters counters;
    tables.queue_drop_stat.clear();
    for (size_t i = 0; i < rows; ++i) {
        const auto interface = static_cast<uint32_t>(i) + 1;
        qosdb::row::queue_drop_stat row;
        qosdb::row::queue_drop_stat::forEachColumn(row, [&](auto& field) {
            if constexpr (std::is_same_v<decltype(field), uint64_t&>) {
                field = counters.next();
            }
        });
        row.ifIndex = interface;
        row.ifName = nameOf(interface);
        tables.queue_drop_stat.push_back(row);
    }
}

void fillPortEcnStat(size_t rows) {
    Counters counters;
    tables.port_ecn_stat.clear();
    for (size_t i = 0; i < rows; ++i) {
        const auto interface = static_cast<uint32_t>(i) + 1;
        tables.port_ecn_stat.push_back({interface, nameOf(interface), counters.next()});
    }
}

}  // namespace bench

// libdb_qos, over the tables in memory.

uint32_t db_create_root_iter(void* object, void* /*first*/, void* /*second*/, void** iterator) {
    *iterator = object;
    return 0;
}

uint32_t db_root_iterator_next(void* iterator) {
    auto& cursor = *static_cast<bench::Cursor*>(iterator);
    return ++cursor.position <= cursor.count ? 0 : QOS_DB_END;
}

#define BENCH_ACCESSOR(table, column, kind, role)                                                                \
    uint32_t db_get_qos_tlm_##table##_##column(void* object, QOS_DB_TYPE_##kind* value) {                        \
        return bench::get(object, qosdb::TableId::table, static_cast<size_t>(bench::PositionIn_##table::column), \
                          qosdb::Kind::kind, value);                                                             \
    }
#define BENCH_FUNCTIONS(table, columns)                                                                \
    uint32_t db_create_qos_tlm_##table##_obj(uint32_t /*first*/, uint32_t /*second*/, void** object) { \
        return bench::create(bench::tables.table, object);                                             \
    }                                                                                                  \
    void db_release_qos_tlm_##table##_object(void* object) {                                           \
        bench::release(object);                                                                        \
    }                                                                                                  \
    columns(BENCH_ACCESSOR, table)

QOS_DB_TABLES(BENCH_FUNCTIONS)
