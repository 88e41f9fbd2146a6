/*
 * POSIX extended regular expressions (IEEE Std 1003.1, 9.4) on short texts, in bounded time and memory.
 *
 * regcomp copies what "+" and "{}" repeat, which takes minutes for "([0-9]*)+++++" and overflows its stack for
 * "([0-9]*){32767}". An expression comes from whoever makes a request, so here none costs more than some microseconds.
 */
#ifndef SRC_SAMPLING_EXPRESSION_H
#define SRC_SAMPLING_EXPRESSION_H

#include <cstdint>

namespace qos {

enum class Found : uint8_t { no, yes, unknown };

// Whether a part of the text matches the expression without regard to case, as regcomp and regexec of the GNU C library
// have it; no when the expression is not valid or has a back-reference. Bytes are characters. Unknown for a text that
// is longer than 31 bytes or has a line feed, before which the C library sees an end now and then.
Found find(const char* expression, const char* text);

}  // namespace qos

#endif
