/*
 * The tables that a benchmark walks, in memory, and the accessors' view of a row.
 *
 * bench::tables holds the rows; libdb_qos's functions, answered by the benchmark itself, hand them out. bench::view::T
 * is what the accessors hand out of a row of table T, its texts belonging to the table; every side of a comparison
 * reads through it or through the plug-in, and so through the same accessors in the same order.
 */
#ifndef BENCH_TABLES_H
#define BENCH_TABLES_H

#include <cstdint>
#include <limits>
#include <vector>

#include "bench/host.h"
#include "devhost/qosdb/store.h"
#include "platform/qos_db.h"

namespace bench {

struct Tables {
#define BENCH_TABLE(table, columns) std::vector<qosdb::row::table> table;
    QOS_DB_TABLES(BENCH_TABLE)
#undef BENCH_TABLE
};
PLATFORM_API extern Tables tables;

namespace view {
#define BENCH_FIELD(table, column, kind, role) QOS_DB_TYPE_##kind column;
#define BENCH_READ(table, column, kind, role) failed |= db_get_qos_tlm_##table##_##column(object, &column);
#define BENCH_VISIT(table, column, kind, role) visit(column);
#define BENCH_VIEW(table, columns)                                                                    \
    struct table {                                                                                    \
        columns(BENCH_FIELD, table) uint32_t read(void* object) {                                     \
            uint32_t failed = 0;                                                                      \
            columns(BENCH_READ, table) return failed;                                                 \
        }                                                                                             \
        template <class Visit>                                                                        \
        void forEachColumn(Visit&& visit) const {                                                     \
            columns(BENCH_VISIT, table)                                                               \
        }                                                                                             \
        static uint32_t open(void** object) { return db_create_qos_tlm_##table##_obj(5, 0, object); } \
        static void close(void* object) { db_release_qos_tlm_##table##_object(object); }              \
    };
QOS_DB_TABLES(BENCH_VIEW)
#undef BENCH_VIEW
#undef BENCH_VISIT
#undef BENCH_READ
#undef BENCH_FIELD
}  // namespace view

/* Reads a table's rows from the first one, at most limit of them, and gives each to a function. */
template <class View, class Each>
void walk(Each&& each, size_t limit = std::numeric_limits<size_t>::max()) {
    void* object = nullptr;
    void* iterator = nullptr;
    if (View::open(&object) != 0 || db_create_root_iter(object, nullptr, nullptr, &iterator) != 0) {
        fail("a table does not open");
    }
    View row;
    for (; limit > 0 && db_root_iterator_next(iterator) == 0; --limit) {
        if (row.read(object) != 0) {
            fail("a row cannot be read");
        }
        each(row);
    }
    View::close(object);
}

/* The accessor reads alone. */
template <class View>
void readAlone(size_t limit = std::numeric_limits<size_t>::max()) {
    walk<View>([](const View&) {}, limit);
}

/* Fill a table with rows that look like a device's: interfaces in order, counters of 4 to 12 digits. */
PLATFORM_API void fillQueueStat(size_t rows, uint32_t firstInterface = 1);
PLATFORM_API void fillQueueDropStat(size_t rows);
PLATFORM_API void fillPortEcnStat(size_t rows);

/*
 * Fills every table with that many rows that all differ in their keys: numbers that look like a device's, the smallest
 * or the largest ones, and texts of at least so many characters, at most 31.
 */
enum class Magnitude { ordinary, smallest, largest };
PLATFORM_API void fillEveryTable(size_t rows, Magnitude numbers = Magnitude::ordinary, int textLength = 1);

}  // namespace bench

#endif
