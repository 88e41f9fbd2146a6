/*
 * Control of libdb_qos over SQLite, beyond what the device's library offers: which file it reads, which objects read
 * the same state of it, and what went wrong.
 *
 * For the program that loads the plug-in. Each call may be made on any thread. Failures are also reported to the
 * platform's log, under the level and id below.
 */
#ifndef DEVHOST_QOSDB_QOSDB_H
#define DEVHOST_QOSDB_QOSDB_H

#include <stdint.h>

#include "platform/export.h"

PLATFORM_BEGIN_DECLS

#define QOS_DB_LOG_LEVEL 3u
#define QOS_DB_LOG_ID 0x09630001u

/*
 * The file that objects made from now on read; null means the one that the environment variable NIVEX_QOS_DB names,
 * which is also the default. Objects that exist stay with their file.
 */
PLATFORM_API void QosDb_SetFile(const char* path);

/* What the last failed call of libdb_qos on this thread had to say, "" when none failed; valid until the next one. */
PLATFORM_API const char* QosDb_LastError(void);

/* The most that a pass keeps of a table in memory: bytes of its records and texts. */
#define QOS_DB_PASS_TABLE_BYTES 67108864u

/*
 * Begins a pass of the calling thread: all objects that it makes until QosDb_EndPass read one state of the database,
 * that of the first one. A pass that the thread has open ends first. Answers and messages are as without a pass.
 *
 * The first object of a table reads all of it into memory, where the others find it. A table that is larger than
 * QOS_DB_PASS_TABLE_BYTES, or than there is memory for, is read from the file by each object, in the same state. As
 * long as no object could be made there is no state, and the next one looks for the file anew; from then on the pass
 * stays with its file, whatever is set or gets the name. What of a table cannot be read, cannot until the pass ends.
 *
 * An open pass costs its memory, and the file: with each round that is written its log grows, which is used anew only
 * when no pass is open that began before the last round; a database that is not in WAL mode cannot be written at all.
 * A pass that is never ended ends with its thread. Objects of other threads are as without it.
 */
PLATFORM_API void QosDb_BeginPass(void);

/* Ends the pass of the calling thread, if there is one. Objects that are left go on in their state. */
PLATFORM_API void QosDb_EndPass(void);

/*
 * The rows of a table, by its name in platform/qos_db_tables.h, as an object made now would see them: within a pass
 * those that are sampled. Walks the table, which is in memory then. Answers 0, or SQLite's code for what an object
 * would have failed with, and for an unknown name.
 */
PLATFORM_API uint32_t QosDb_CountRows(const char* table, uint64_t* rows);

PLATFORM_END_DECLS

#endif
