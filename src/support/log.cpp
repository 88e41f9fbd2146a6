#include "nivex_qos/log.h"

#include <cstdarg>

#include "platform/bounded.h"
#include "platform/log.h"

int32_t QOS_TLM_DiagErr(const char* format, ...) {
    char text[QOS_TLM_LOG_TEXT_SIZE] = {};
    va_list arguments;
    va_start(arguments, format);
    const int formatted = vsnprintf_truncated_s(text, sizeof text, format, arguments);
    va_end(arguments);
    if (formatted < 0) {
        return formatted;
    }
    return IM_Agent_ReportLogById(QOS_TLM_LOG_LEVEL, QOS_TLM_LOG_ID, "%s", text);
}
