/*
 * How programs that only read the QoS statistics database open it, whoever's it is.
 *
 * SQLite reads a database in WAL mode through its log and index, which it makes when they are not there. Who may not
 * make them reads a database that has none as it stands: nobody has it open then. Who reads so has to look whether a
 * log has come, as a feed brings it.
 */
#ifndef DEVHOST_QOSDB_OPEN_FOR_READING_H
#define DEVHOST_QOSDB_OPEN_FOR_READING_H

#include <string>

#include "devhost/qosdb/sqlite_handle.h"

namespace qosdb {

/*
 * Opens a file that is there; queries cannot change it, and wait 300 ms for others. asItStands: without log and index.
 * Answers SQLite's code, its message being the connection's. Throws only std::bad_alloc.
 */
int openForReading(const std::string& path, Connection& connection, bool& asItStands);

/* What of the database this user may not do and would have to, "; ..." to follow SQLite's message, or "". */
std::string missingRights(const std::string& path);

}  // namespace qosdb

#endif
