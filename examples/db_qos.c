/*
 * A libdb_qos of the smallest kind: all tables, with fixed rows. It shows what the plug-in asks of one, and how
 * the list of tables stamps out the functions; a real one reads its rows from elsewhere.
 *
 *   cc -std=c11 -shared -fPIC db_qos.c -o libdb_qos.so $(pkg-config --cflags nivex-qos-plugin)
 *   LD_LIBRARY_PATH=. ./host "$(pkg-config --variable=plugin nivex-qos-plugin)" json
 */
#include <stdlib.h>

#include "platform/qos_db.h"

/* struct TABLE: a row. */
#define FIELD(table, column, kind, role) QOS_DB_TYPE_##kind column;
#define ROW(table, columns)   \
    struct table {            \
        columns(FIELD, table) \
    };
QOS_DB_TABLES(ROW)

/* TABLE_rows. Queues are 0 to 7, interface names and slots have at most 31 bytes. */
static const struct port_ecn_stat port_ecn_stat_rows[] = {{17, "ETH1/0/3", 120007}};
static const struct port_buf_stat port_buf_stat_rows[] = {
    {1, "1", 17, "ETH1/0/3", 1200000, 240000, 960000, 480000, 120000}};
static const struct queue_buf_stat queue_buf_stat_rows[] = {{1, "1", 17, "ETH1/0/3", 5, 24000, 48000, 12000, 120000}};
static const struct queue_stat queue_stat_rows[] = {
    {17, "ETH1/0/3", 5, 9007199254740993, 240014, 360021, 480028, 600035, 720042, 840049, 960056}};
static const struct queue_drop_stat queue_drop_stat_rows[] = {{17, "ETH1/0/3", 120007, 240014, 360021, 480028, 600035,
                                                               720042, 840049, 960056, 1080063, 1200070, 1320077,
                                                               1440084, 1560091, 1680098, 1800105, 1920112}};
static const struct ing_port_drop_stat ing_port_drop_stat_rows[] = {{17, "ETH1/0/3", 120007, 240014}};
static const struct tm_chip_buf_stat tm_chip_buf_stat_rows[] = {{"1/2", 12000000, 4920000, 41}};
static const struct ing_buf_usage_stat ing_buf_usage_stat_rows[] = {
    {17, 3, "ETH1/0/3", 1, 1, 1001, 2002, 3003, 4004, 5005, 6006}};
static const struct buffer_monitor_result buffer_monitor_result_rows[] = {
    {17, 3, "ETH1/0/3", 62000, 62, 1709802302, 7, 51000, 51, 1709802301, 250, 88000, 88, 1709802301, 911, 1, 4}};

/* An object and its iterator. It lives for one sampling call and is used by one thread. */
typedef struct Cursor {
    const void* rows; /* of its table */
    size_t count;
    size_t position; /* 0 before the first row, 1 on it */
} Cursor;

/* Any code but 0 is a failure; the plug-in logs it. */
#define MISUSE 1u
#define NO_MEMORY 2u

static uint32_t create(const void* rows, size_t count, void** object) {
    Cursor* cursor = malloc(sizeof *cursor);
    *object = cursor;
    if (cursor == NULL) {
        return NO_MEMORY;
    }
    *cursor = (Cursor){rows, count, 0};
    return 0;
}

uint32_t db_create_root_iter(void* object, void* first, void* second, void** iterator) {
    (void)first;
    (void)second;
    *iterator = object;
    return object == NULL ? MISUSE : 0;
}

uint32_t db_root_iterator_next(void* iterator) {
    Cursor* cursor = iterator;
    if (cursor->position >= cursor->count) {
        return QOS_DB_END;
    }
    ++cursor->position;
    return 0;
}

/* The row that an object stands on; null when it is another table's or stands before the first one. */
static const void* current(const void* object, const void* rows, size_t rowSize) {
    const Cursor* cursor = object;
    if (cursor == NULL || cursor->rows != rows || cursor->position == 0) {
        return NULL;
    }
    return (const char*)rows + (cursor->position - 1) * rowSize;
}

/* A text stays the library's, valid until the iterator moves or the object is released. */
#define ACCESSOR(table, column, kind, role)                                               \
    uint32_t db_get_qos_tlm_##table##_##column(void* object, QOS_DB_TYPE_##kind* value) { \
        const struct table* row = current(object, table##_rows, sizeof *row);             \
        if (row == NULL) {                                                                \
            return MISUSE;                                                                \
        }                                                                                 \
        *value = row->column;                                                             \
        return 0;                                                                         \
    }
#define TABLE(table, columns)                                                                  \
    uint32_t db_create_qos_tlm_##table##_obj(uint32_t first, uint32_t second, void** object) { \
        (void)first;                                                                           \
        (void)second;                                                                          \
        return create(table##_rows, sizeof table##_rows / sizeof table##_rows[0], object);     \
    }                                                                                          \
    void db_release_qos_tlm_##table##_object(void* object) {                                   \
        free(object);                                                                          \
    }                                                                                          \
    columns(ACCESSOR, table)

QOS_DB_TABLES(TABLE)
