/*
 * What every public header of the plug-in needs: C linkage and the export mark.
 *
 * The library is built with hidden visibility; only what carries QOS_TLM_API is visible to the host. All headers of
 * this folder compile as C11 and as C++20.
 *
 * Conventions that hold for every function of the library, unless its own remark says otherwise:
 *  1. Results are unsigned 32-bit: a step answers 0 (done) or 1 (failed), a question answers 1 (yes) or 0 (no), a
 *     sampling call answers one of QosTlmResult.
 *  2. A null argument is answered with the failing result (1 from a step, 0 from a question) and no message.
 *  3. Every block that changes hands comes from the host's NIVEX_AllocBuff and is returned with NIVEX_FreeBuff.
 *  4. No locks and no threads: calls are made one at a time, after QOS_TLM_InitPlugin has returned.
 *  5. Texts are NUL-terminated unless a size is given beside them.
 */
#ifndef NIVEX_QOS_EXPORT_H
#define NIVEX_QOS_EXPORT_H

#include <stdint.h>

#ifdef __cplusplus
#define QOS_TLM_BEGIN_DECLS extern "C" {
#define QOS_TLM_END_DECLS }
#define QOS_TLM_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define QOS_TLM_BEGIN_DECLS
#define QOS_TLM_END_DECLS
#define QOS_TLM_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#define QOS_TLM_API __attribute__((visibility("default")))

#endif
