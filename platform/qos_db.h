/*
 * libdb_qos, the QoS statistics database: the one library that the plug-in is linked with.
 *
 * Each table of platform/qos_db_tables.h has a constructor db_create_qos_tlm_<table>_obj, a release function
 * db_release_qos_tlm_<table>_object and one accessor db_get_qos_tlm_<table>_<column> for each column. An object is used
 * by one thread. A text belongs to the object and is valid until the iterator moves or the object is released. A
 * result of 0 means done, anything else is a failure code.
 */
#ifndef PLATFORM_QOS_DB_H
#define PLATFORM_QOS_DB_H

#include <stdint.h>

#include "platform/export.h"
#include "platform/qos_db_tables.h"

PLATFORM_BEGIN_DECLS

/* What db_root_iterator_next answers when there is no further record. */
#define QOS_DB_END 110012u

/* C type of a column kind. */
#define QOS_DB_TYPE_UINT32 uint32_t
#define QOS_DB_TYPE_UINT64 uint64_t
#define QOS_DB_TYPE_TEXT const char*
#define QOS_DB_TYPE_BYTE uint8_t

/* Makes an iterator that stands before the first record of the object's table. The plug-in passes null twice. */
PLATFORM_API uint32_t db_create_root_iter(void* object, void* first, void* second, void** iterator);

/* Moves to the next record: 0 = the object now holds it, QOS_DB_END = there is none, else an error. */
PLATFORM_API uint32_t db_root_iterator_next(void* iterator);

/*
 * Per table: the constructor (the plug-in passes 5 and 0), the release function (which also disposes of the object's
 * iterator), and the accessors, which read the record that the iterator stands on.
 */
#define QOS_DB_DECLARE_ACCESSOR(table, column, kind, role) \
    PLATFORM_API uint32_t db_get_qos_tlm_##table##_##column(void* object, QOS_DB_TYPE_##kind* value);
#define QOS_DB_DECLARE_TABLE(table, columns)                                                               \
    PLATFORM_API uint32_t db_create_qos_tlm_##table##_obj(uint32_t first, uint32_t second, void** object); \
    PLATFORM_API void db_release_qos_tlm_##table##_object(void* object);                                   \
    columns(QOS_DB_DECLARE_ACCESSOR, table)

QOS_DB_TABLES(QOS_DB_DECLARE_TABLE)

#undef QOS_DB_DECLARE_TABLE
#undef QOS_DB_DECLARE_ACCESSOR

PLATFORM_END_DECLS

#endif
