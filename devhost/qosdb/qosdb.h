/*
 * Control of libdb_qos over SQLite, beyond what the device's library offers: which file it reads, and what went wrong.
 *
 * For the program that loads the plug-in. Each call may be made on any thread. Failures are also reported to the
 * platform's log, under the level and id below.
 */
#ifndef DEVHOST_QOSDB_QOSDB_H
#define DEVHOST_QOSDB_QOSDB_H

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

PLATFORM_END_DECLS

#endif
