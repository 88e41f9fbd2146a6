#include "platform/bounded.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

int strcpy_s(char* dest, size_t size, const char* source) {
    if (dest == nullptr || size == 0) {
        return EINVAL;
    }
    const size_t length = source == nullptr ? size : strnlen(source, size);
    if (length == size) {
        dest[0] = '\0';
        return source == nullptr ? EINVAL : ERANGE;
    }
    std::memcpy(dest, source, length + 1);
    return 0;
}

int memcpy_s(void* dest, size_t size, const void* source, size_t count) {
    if (dest == nullptr || source == nullptr) {
        return EINVAL;
    }
    if (count > size) {
        return ERANGE;
    }
    std::memcpy(dest, source, count);
    return 0;
}

int memset_s(void* dest, size_t size, int byte, size_t count) {
    if (dest == nullptr) {
        return EINVAL;
    }
    if (count > size) {
        return ERANGE;
    }
    std::memset(dest, byte, count);
    return 0;
}

int sprintf_s(char* dest, size_t size, const char* format, ...) {
    if (dest == nullptr || size == 0) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int length = format == nullptr ? -1 : std::vsnprintf(dest, size, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= size) {
        dest[0] = '\0';
        return -1;
    }
    return length;
}

int sscanf_s(const char* text, const char* format, ...) {
    if (text == nullptr || format == nullptr) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    const int items = std::vsscanf(text, format, arguments);
    va_end(arguments);
    return std::max(items, 0);  // the C library answers -1 for a text that ends before the first item
}

int vsnprintf_truncated_s(char* dest, size_t size, const char* format, va_list arguments) {
    if (dest == nullptr || size == 0) {
        return -1;
    }
    const int length = format == nullptr ? -1 : std::vsnprintf(dest, size, format, arguments);
    if (length < 0) {
        dest[0] = '\0';
        return -1;
    }
    return static_cast<size_t>(length) < size ? length : static_cast<int>(size - 1);
}
