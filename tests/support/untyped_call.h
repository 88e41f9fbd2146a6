/*
 * A function that calls others with another type than they have, or is so called.
 */
#ifndef TESTS_SUPPORT_UNTYPED_CALL_H
#define TESTS_SUPPORT_UNTYPED_CALL_H

#if defined(__clang__)
#define UNTYPED_CALL __attribute__((no_sanitize("function")))
#else
#define UNTYPED_CALL
#endif

#endif
