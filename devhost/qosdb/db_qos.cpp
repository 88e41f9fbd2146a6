/*
 * The functions of libdb_qos, stamped out from the list of tables over Reader. An object and its iterator are the same
 * Reader.
 */
#include "platform/qos_db.h"

#include <exception>

#include "devhost/qosdb/pass.h"
#include "devhost/qosdb/reader.h"

namespace qosdb {

namespace {

/* A column's position in its table. */
#define QOSDB_POSITION(table, column, kind, role) column,
#define QOSDB_POSITIONS(table, columns) enum class PositionIn_##table : size_t{columns(QOSDB_POSITION, table)};
QOS_DB_TABLES(QOSDB_POSITIONS)
#undef QOSDB_POSITIONS
#undef QOSDB_POSITION

uint32_t create(TableId table, void** object) {
    if (object == nullptr) {
        return report(SQLITE_MISUSE, "db_create_qos_tlm_%s_obj: no place for the object", tableOf(table).name);
    }
    *object = nullptr;
    try {
        std::unique_ptr<Reader> reader;
        const uint32_t code = makeReader(table, reader);
        *object = reader.release();
        return code;
    } catch (const std::exception& error) {
        return report(SQLITE_NOMEM, "db_create_qos_tlm_%s_obj: %s", tableOf(table).name, error.what());
    }
}

void release(void* object) {
    delete static_cast<Reader*>(object);
}

template <TableId table, auto position, class Value>
uint32_t get(void* object, Value* value) {
    if (object == nullptr || value == nullptr) [[unlikely]] {
        return report(SQLITE_MISUSE, "an accessor of table %s was called with null", tableOf(table).name);
    }
    return static_cast<const Reader*>(object)->get<table, static_cast<size_t>(position)>(value);
}

}  // namespace

}  // namespace qosdb

#define QOSDB_ACCESSOR(table, column, kind, role)                                                   \
    uint32_t db_get_qos_tlm_##table##_##column(void* object, QOS_DB_TYPE_##kind* value) {           \
        return qosdb::get<qosdb::TableId::table, qosdb::PositionIn_##table::column>(object, value); \
    }
#define QOSDB_FUNCTIONS(table, columns)                                                                \
    uint32_t db_create_qos_tlm_##table##_obj(uint32_t /*first*/, uint32_t /*second*/, void** object) { \
        return qosdb::create(qosdb::TableId::table, object);                                           \
    }                                                                                                  \
    void db_release_qos_tlm_##table##_object(void* object) {                                           \
        qosdb::release(object);                                                                        \
    }                                                                                                  \
    columns(QOSDB_ACCESSOR, table)

QOS_DB_TABLES(QOSDB_FUNCTIONS)

uint32_t db_create_root_iter(void* object, void* /*first*/, void* /*second*/, void** iterator) {
    if (object == nullptr || iterator == nullptr) {
        return qosdb::report(SQLITE_MISUSE, "db_create_root_iter: no object, or no place for the iterator");
    }
    const uint32_t code = static_cast<qosdb::Reader*>(object)->iterate();
    *iterator = code == 0 ? object : nullptr;
    return code;
}

uint32_t db_root_iterator_next(void* iterator) {
    if (iterator == nullptr) [[unlikely]] {
        return qosdb::report(SQLITE_MISUSE, "db_root_iterator_next: no iterator");
    }
    return static_cast<qosdb::Reader*>(iterator)->next();
}
