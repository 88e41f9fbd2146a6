/*
 * Record filters: the questions that every family asks of a record. None keeps state; all may run on any thread.
 */
#ifndef NIVEX_QOS_FILTER_H
#define NIVEX_QOS_FILTER_H

#include "nivex_qos/sample.h"

QOS_TLM_BEGIN_DECLS

/* The longest interface-name pattern, in characters: what a condition value can hold with its NUL. */
#define QOS_TLM_PATTERN_MAX (QOS_TLM_CONDITION_VALUE_SIZE - 1u)

/*
 * 1 when the whole of name matches the pattern, without regard to case, else 0. In a pattern "*" is a run of zero or
 * more decimal digits; every other character is one of a POSIX extended regular expression (IEEE Std 1003.1, 9.4), read
 * as the GNU C library reads it. 0 also for a null argument, a pattern that does not compile, one with a back-reference
 * ("\1" to "\9") and one above QOS_TLM_PATTERN_MAX. nameSize, the capacity of the name's field, does not matter.
 *
 * A pattern costs microseconds, whatever it is. Where the C library has to match (characters of several bytes, names
 * above 31 bytes or with a line feed) it can be a second, and a pattern with a "{", a second "+" or a "\" before a
 * digit other than 0, even in brackets, gives 0: they could take minutes or the stack.
 */
QOS_TLM_API uint32_t QOS_TLM_CheckIfName(const char* pattern, const char* name, uint32_t nameSize);

/* 1 when value passes the request's one or two thresholds (thresholdNum 1, or more), else 0. */
QOS_TLM_API uint32_t QOS_TLM_ThresholdFilter(const QosTlmQueryParam* request, uint32_t value);

/*
 * Reads an unsigned decimal number as strtoul does (leading white space and one sign are taken) and stores its low 32
 * bits. 1, with number untouched, when there is no digit, something follows, or it exceeds 64 bits.
 */
QOS_TLM_API uint32_t QOS_TLM_ParsesString2Number(const char* text, uint32_t* number);

/*
 * Reads a slot: one number as above, or two joined by "/", which the device database turns into a global slot number.
 * 0, or 1, or the code of the device database.
 */
QOS_TLM_API uint32_t QOS_TLM_StrSlot2IntSlot(const char* text, uint32_t* slot);

/* The queue of a service class: "af1" to "af4" 1 to 4, "ef" 5, "cs6" 6, "cs7" 7 (exact), any other text 0. */
QOS_TLM_API void QOS_TLM_ParsesServiceClassToQueueId(const char* name, uint32_t* queueId);

QOS_TLM_END_DECLS

#endif
