/*
 * The device-management database, as far as the plug-in asks it.
 */
#ifndef PLATFORM_DEVICE_DB_H
#define PLATFORM_DEVICE_DB_H

#include <stdint.h>

#include "platform/export.h"

PLATFORM_BEGIN_DECLS

/*
 * The global slot number of a slot text "first/second"; the number after the slash comes before the one in front of it.
 * 0 = *globalSlot was stored.
 */
PLATFORM_API uint32_t DEVM_DB_GetGlobalSlotIdByLocalSlotId(uint32_t* globalSlot, uint32_t second, uint32_t first);

PLATFORM_END_DECLS

#endif
