/*
 * The plug-in's one diagnostic log. Every message of the library goes through it to the platform's log, under level
 * QOS_TLM_LOG_LEVEL and id QOS_TLM_LOG_ID. It may be called from any thread.
 */
#ifndef NIVEX_QOS_LOG_H
#define NIVEX_QOS_LOG_H

#include "nivex_qos/export.h"

QOS_TLM_BEGIN_DECLS

#define QOS_TLM_LOG_LEVEL 9u
#define QOS_TLM_LOG_ID 157421656u /* 0x09621058 */
#define QOS_TLM_LOG_TEXT_SIZE 1024u

/*
 * Formats as printf does and reports the text, cut to 1023 characters; the platform gets it as the argument of "%s",
 * never as a format. A message that cannot be formatted is dropped. Answers what the platform's log or the failed
 * formatting answered; nobody in the library looks at it.
 */
QOS_TLM_API int32_t QOS_TLM_DiagErr(const char* format, ...) __attribute__((format(printf, 1, 2)));

QOS_TLM_END_DECLS

#endif
