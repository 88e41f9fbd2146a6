#include "devhost/qosdb/report.h"

#include <cstdarg>
#include <cstdio>

#include "devhost/qosdb/qosdb.h"
#include "platform/log.h"

namespace qosdb {

namespace {

thread_local char lastError[1024];

}  // namespace

uint32_t report(int code, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(lastError, sizeof lastError, format, arguments);
    va_end(arguments);
    IM_Agent_ReportLogById(QOS_DB_LOG_LEVEL, QOS_DB_LOG_ID, "%s", lastError);
    return static_cast<uint32_t>(code);
}

uint32_t report(const Failure& failure) noexcept {
    return report(failure.code, "%s", failure.text.c_str());
}

}  // namespace qosdb

const char* QosDb_LastError(void) {
    return qosdb::lastError;
}
