/*
 * Failures of libdb_qos: for QosDb_LastError and the platform's log.
 */
#ifndef DEVHOST_QOSDB_REPORT_H
#define DEVHOST_QOSDB_REPORT_H

#include <cstdint>
#include <string>

namespace qosdb {

/* What stands against going on: SQLite's code, 0 when nothing does, and the text to report. */
struct Failure {
    int code = 0;
    std::string text = {};
};

/* Keeps the text for QosDb_LastError, sends it to the platform's log and answers code. */
__attribute__((format(printf, 2, 3))) uint32_t report(int code, const char* format, ...) noexcept;
uint32_t report(const Failure& failure) noexcept;

}  // namespace qosdb

#endif
