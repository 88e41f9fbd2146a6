/*
 * Texts from outside (names, aliases, file names, arguments, messages) in a form that may go to a terminal.
 *
 * Printable UTF-8 stays as it is. Every other byte becomes \xNN with two digits in lower case: bytes that are no UTF-8,
 * and all bytes of control characters (C0, DEL, C1, line and paragraph separators) and of characters that turn the
 * direction of writing. A backslash is doubled, so that the form tells every text apart.
 */
#ifndef DEVHOST_SUPPORT_SHOWN_H
#define DEVHOST_SUPPORT_SHOWN_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/* The first character of a text that is not empty. */
struct Character {
    static constexpr char32_t kNone = 0xffffffff;

    char32_t code;  // kNone: the first byte begins no character of UTF-8
    size_t size;    // in bytes; 1 with kNone
};
Character firstCharacter(std::string_view text);

/* Whether a character may go to a terminal as it is. */
bool isPrintable(char32_t code);

/* The text in the form above. */
std::string shown(std::string_view text);

/* The text with only the bytes that are no UTF-8 as \xNN, for what takes nothing else but escapes on its own, as JSON.
 */
std::string validUtf8(std::string_view text);

/* The characters of UTF-8. */
size_t countCharacters(std::string_view text);

}  // namespace host

#endif
