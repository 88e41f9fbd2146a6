/*
 * The platform's log.
 */
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#include <stdint.h>

#include "platform/export.h"

PLATFORM_BEGIN_DECLS

/* Reports a message under a level (or category) and an id; format and arguments as for printf. The result is not used.
 */
PLATFORM_API int32_t IM_Agent_ReportLogById(uint32_t level, uint32_t logId, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

PLATFORM_END_DECLS

#endif
