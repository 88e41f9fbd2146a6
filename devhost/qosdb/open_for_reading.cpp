#include "devhost/qosdb/open_for_reading.h"

namespace qosdb {

namespace {

constexpr int kBusyTimeoutMs = 300;

}  // namespace

// Opened for writing as well, so that the last reader can tidy up the files of the WAL.
int openForReading(const std::string& path, Connection& connection) {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    connection.reset(opened);
    if (code != SQLITE_OK) {
        return code;
    }
    sqlite3_busy_timeout(opened, kBusyTimeoutMs);
    return sqlite3_exec(opened, "PRAGMA query_only=1", nullptr, nullptr, nullptr);
}

}  // namespace qosdb
