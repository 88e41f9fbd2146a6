/*
 * Texts in fixed fields of the host's request, which may lack their NUL: they end at the end of their field.
 */
#ifndef SRC_SUPPORT_BOUNDED_TEXT_H
#define SRC_SUPPORT_BOUNDED_TEXT_H

#include <cstddef>
#include <cstring>

namespace qos {

// Meant for texts known where this is compiled, whose comparison then takes a few instructions.
template <size_t Size>
bool fieldEquals(const char (&field)[Size], const char* text) {
    const size_t size = strlen(text) + 1;
    return size <= Size && memcmp(field, text, size) == 0;
}

// A NUL-terminated view of a field; the text is copied only when its NUL is missing.
template <size_t Size>
class BoundedText {
  public:
    explicit BoundedText(const char (&field)[Size]) : text_(field) {
        if (field[Size - 1] != '\0' && memchr(field, '\0', Size) == nullptr) {
            memcpy(copy_, field, Size);
            copy_[Size] = '\0';
            text_ = copy_;
        }
    }
    BoundedText(const BoundedText&) = delete;
    BoundedText& operator=(const BoundedText&) = delete;

    const char* get() const { return text_; }

  private:
    const char* text_;
    char copy_[Size + 1];
};

}  // namespace qos

#endif
