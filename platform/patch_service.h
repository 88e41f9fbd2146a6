/*
 * The platform's patch service, which patches libraries of a running process.
 */
#ifndef PLATFORM_PATCH_SERVICE_H
#define PLATFORM_PATCH_SERVICE_H

#include <stdint.h>

#include "platform/export.h"

PLATFORM_BEGIN_DECLS

/* Called when a patch goes in (operation 0) or out (1); sets *notOurs to 1 when the patch is another library's. */
typedef uint32_t (*TarnPatC2HHook)(int32_t operation, uint64_t context, const void* description, uint32_t* notOurs);

/* Registers a hook; 0 = registered. */
PLATFORM_API uint32_t TARN_PAT_C2HRegisterHook(TarnPatC2HHook hook);

/* Called once with the handle of a library that dlopen has just loaded; 0 = the library may be used. */
PLATFORM_API uint32_t TARN_PAT_RestoreForDLL(void* handle);

PLATFORM_END_DECLS

#endif
