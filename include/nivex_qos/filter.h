/*
 * Record filters: the questions that every family asks of a record. None keeps state; all may run on any thread.
 */
#ifndef NIVEX_QOS_FILTER_H
#define NIVEX_QOS_FILTER_H

#include "nivex_qos/sample.h"

QOS_TLM_BEGIN_DECLS

/* The longest interface-name pattern, in characters: a condition value that holds no NUL. */
#define QOS_TLM_PATTERN_MAX QOS_TLM_CONDITION_VALUE_SIZE

/*
 * 1 when the whole of name matches the pattern, else 0. A pattern is a POSIX extended regular expression (IEEE Std
 * 1003.1, 9.4) between "^" and "$", in which each "*" stands for "([0-9]*)", a run of zero or more decimal digits:
 * - GNU's escapes are taken: \w \W \s \S, and for places \< \> \b \B \` \'. Any other escaped character is itself.
 * - Whatever the locale of the process is, it is read as in the C locale: bytes are characters, those above 127 and
 * line feeds among them ("." takes them, no class does). The case of the letters A to Z does not matter.
 * - An alternative outside parentheses has only the "^" or the "$" on its own side: write "(a|b)" for "a|b".
 * Unlike the C library's regcomp, it takes an escaped small letter, but no escaped digit or comma in a count, and "^"
 * and "$" fit at the ends of the name only, never beside a line feed.
 *
 * 0 for a null argument, for every name of a pattern that is no such expression or longer than QOS_TLM_PATTERN_MAX, of
 * one with a back-reference ("\1" to "\9"), and of one that takes more than 256 steps (a character, an alternative, a
 * repetition) when its counts are written out as far as the name has room for them: "(a?b?){9}{9}{9}".
 *
 * A name may be of any length, and the time is in proportion to it: some 50 microseconds at worst for the 31 characters
 * of a record's. The stack is 10 KiB at most, whatever pattern and name are. nameSize, the capacity of the name's
 * field, does not matter.
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
