/*
 * SQLite's handles as owning pointers, and a statement in use. Statements must go before their connection: declare them
 * after it.
 */
#ifndef DEVHOST_QOSDB_SQLITE_HANDLE_H
#define DEVHOST_QOSDB_SQLITE_HANDLE_H

#include <sqlite3.h>

#include <memory>

namespace qosdb {

struct HandleCloser {
    void operator()(sqlite3* connection) const noexcept { sqlite3_close(connection); }
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};

using Connection = std::unique_ptr<sqlite3, HandleCloser>;
using Statement = std::unique_ptr<sqlite3_stmt, HandleCloser>;

struct StatementReset {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_reset(statement); }
};

/* A statement of somebody else while it is stepped: ready for its next use, and its read transaction over, afterwards.
 */
using ActiveStatement = std::unique_ptr<sqlite3_stmt, StatementReset>;

}  // namespace qosdb

#endif
