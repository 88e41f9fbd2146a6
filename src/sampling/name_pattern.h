/*
 * The language of interface-name patterns, which include/nivex_qos/filter.h describes.
 *
 * A pattern comes from whoever makes a request. The C library's regcomp takes minutes for "*+++++", its regexec the
 * whole stack for "()(\1((\1)|.))+"; here a pattern takes time in proportion to the name's length and a few KiB of
 * stack.
 */
#ifndef SRC_SAMPLING_NAME_PATTERN_H
#define SRC_SAMPLING_NAME_PATTERN_H

namespace qos {

// Whether a name of any length matches a pattern.
bool matches(const char* pattern, const char* name);

}  // namespace qos

#endif
