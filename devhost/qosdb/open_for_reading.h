/*
 * How the programs that only read the QoS statistics database open it.
 */
#ifndef DEVHOST_QOSDB_OPEN_FOR_READING_H
#define DEVHOST_QOSDB_OPEN_FOR_READING_H

#include <string>

#include "devhost/qosdb/sqlite_handle.h"

namespace qosdb {

/*
 * Opens a file that is there; queries cannot change it, and wait 300 ms for others. Answers SQLite's code, its message
 * being the connection's.
 */
int openForReading(const std::string& path, Connection& connection);

}  // namespace qosdb

#endif
