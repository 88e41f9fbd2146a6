/*
 * The platform's clock.
 */
#ifndef PLATFORM_SYSTEM_TIME_H
#define PLATFORM_SYSTEM_TIME_H

#include <stdint.h>

#include "platform/export.h"

PLATFORM_BEGIN_DECLS

/* A point in time, 12 bytes that only the platform understands; the plug-in zeroes them before each use. */
typedef struct KatSystime {
    uint32_t opaque[3];
} KatSystime;

/* A calendar time, 12 bytes. */
typedef struct KatCalendar {
    uint16_t year;
    uint8_t month; /* 1 to 12 */
    uint8_t day;   /* 1 to 31 */
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    uint8_t reserved[5]; /* not read */
} KatCalendar;

/* The current time. */
PLATFORM_API void KAT_SystimeGet(KatSystime* now);

/* Milliseconds, or seconds, from 1970-01-01 00:00:00 to a time, as a high and a low 32-bit half. */
PLATFORM_API void KAT_SystimeMsSince1970(const KatSystime* time, uint32_t* high, uint32_t* low);
PLATFORM_API void KAT_SystimeSecSince1970(const KatSystime* time, uint32_t* high, uint32_t* low);

/* The calendar time of a count of seconds since 1970, by the same convention; 0 = converted. */
PLATFORM_API uint32_t KAT_SystimeSec2Time(uint64_t seconds, KatCalendar* calendar);

PLATFORM_END_DECLS

#endif
