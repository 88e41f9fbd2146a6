/*
 * The host telemetry framework, as far as the plug-in calls it; resolved from the process that loads the library.
 */
#ifndef PLATFORM_HOST_FRAMEWORK_H
#define PLATFORM_HOST_FRAMEWORK_H

#include <stddef.h>
#include <stdint.h>

#include "platform/export.h"

PLATFORM_BEGIN_DECLS

struct QosTlmFrmVtbl;

/* Stores the host's function table; 0 = stored. The plug-in passes 1000 twice. */
PLATFORM_API uint32_t COMP_GetVTable(uint32_t firstId, uint32_t secondId, const struct QosTlmFrmVtbl** table);

/* A block of size bytes, aligned for any object, contents undefined; null when there is none. */
PLATFORM_API void* NIVEX_AllocBuff(size_t size);

/* Takes back a block of NIVEX_AllocBuff; never called with null. */
PLATFORM_API void NIVEX_FreeBuff(void* block);

PLATFORM_END_DECLS

#endif
