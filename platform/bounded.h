/*
 * The platform's bounded string and memory functions. Sizes are bytes of the destination.
 */
#ifndef PLATFORM_BOUNDED_H
#define PLATFORM_BOUNDED_H

#include <stdarg.h>
#include <stddef.h>

#include "platform/export.h"

PLATFORM_BEGIN_DECLS

/* 0, or not 0 when a pointer is null or source with its NUL does not fit; nothing past dest + size is ever written. */
PLATFORM_API int strcpy_s(char* dest, size_t size, const char* source);

/* 0, or not 0 when a pointer is null or count exceeds size. */
PLATFORM_API int memcpy_s(void* dest, size_t size, const void* source, size_t count);
PLATFORM_API int memset_s(void* dest, size_t size, int byte, size_t count);

/* The length of the text without its NUL, or -1 when it does not fit. */
PLATFORM_API int sprintf_s(char* dest, size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));

/* The number of items read. */
PLATFORM_API int sscanf_s(const char* text, const char* format, ...) __attribute__((format(scanf, 2, 3)));

/* The length of the text, cut to size - 1 characters, or a negative value when it cannot be formatted. */
PLATFORM_API int vsnprintf_truncated_s(char* dest, size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

PLATFORM_END_DECLS

#endif
