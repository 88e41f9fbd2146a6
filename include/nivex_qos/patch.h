/*
 * Hot-patch hooks: how the platform's patch service tells the plug-in that a patch of it goes in or out.
 *
 * The plug-in has nothing to do then; the hooks only recognise a patch of this library and acknowledge it. They touch
 * no shared state and may run on any thread at any time. A description belongs to the patch service and must not be
 * null; of it only the NUL-terminated library file name at byte QOS_PATCH_FILE_NAME_OFFSET is read.
 */
#ifndef NIVEX_QOS_PATCH_H
#define NIVEX_QOS_PATCH_H

#include "nivex_qos/export.h"

QOS_TLM_BEGIN_DECLS

#define QOS_PATCH_FILE_NAME_OFFSET 397u

typedef enum QosPatchOperation { QOS_PATCH_ACTIVATE = 0, QOS_PATCH_DEACTIVATE = 1 } QosPatchOperation;

/*
 * The asynchronous hook, registered during start-up. context is passed on unchanged. *notOurs becomes 1 when the patch
 * is another library's, else 0. Answers 0, or 1 for an operation that is no QosPatchOperation.
 */
QOS_TLM_API uint32_t QOS_Plugin_AsynPatchC2hHookfunc(int32_t operation, uint64_t context, const void* description,
                                                     uint32_t* notOurs);
QOS_TLM_API void QOS_Plugin_AsynPatchC2hActiveFunc(uint64_t context);
QOS_TLM_API void QOS_Plugin_AsynPatchC2hDeactiveFunc(uint64_t context);

/*
 * The synchronous hook, found by its name. *handled becomes 1 when the patch is this library's, else 0: the opposite
 * sense of the asynchronous hook's flag. Answers 0, or 1 (logged) for an operation that is no QosPatchOperation.
 */
QOS_TLM_API uint32_t libnivex_qos_plugin_PAT_C2HSyncHookFunc(uint32_t operation, const void* description,
                                                             uint32_t* handled);
QOS_TLM_API void libnivex_qos_plugin_ResPatchC2hActivefunc(void);
QOS_TLM_API void libnivex_qos_plugin_ResPatchC2hDeactivefunc(void);

/* Registers the asynchronous hook with the patch service, as start-up does; a refusal is logged. */
QOS_TLM_API void QOS_Plugin_C2HPatchInit(void);

QOS_TLM_END_DECLS

#endif
