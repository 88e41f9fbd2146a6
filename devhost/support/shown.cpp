#include "devhost/support/shown.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace host {

Character firstCharacter(std::string_view text) {
    constexpr Character kNoCharacter = {Character::kNone, 1};
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return {first, 1};
    }
    // By the number of bytes: the smallest code that needs so many.
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const size_t size = first >= 0xf8 ? 0 : first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : first >= 0xc0 ? 2 : 0;
    if (size == 0 || text.size() < size) {
        return kNoCharacter;
    }
    char32_t code = first & (0x7f >> size);
    for (const char next : text.substr(1, size - 1)) {
        if ((next & 0xc0) != 0x80) {
            return kNoCharacter;
        }
        code = code << 6 | (next & 0x3f);
    }
    const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
    return code < kSmallest[size] || code > 0x10ffff || isSurrogate ? kNoCharacter : Character{code, size};
}

bool isPrintable(char32_t code) {
    const auto isIn = [code](char32_t first, char32_t last) { return code >= first && code <= last; };
    return code != Character::kNone && !isIn(0, 0x1f) && !isIn(0x7f, 0x9f) && !isIn(0x2028, 0x2029) && code != 0x61c &&
           !isIn(0x200e, 0x200f) && !isIn(0x202a, 0x202e) && !isIn(0x2066, 0x2069);
}

namespace {

void appendBytes(std::string& form, std::string_view bytes) {
    for (const char byte : bytes) {
        fmt::format_to(std::back_inserter(form), "\\x{:02x}", static_cast<unsigned char>(byte));
    }
}

}  // namespace

std::string shown(std::string_view text) {
    std::string form;
    while (!text.empty()) {
        const auto [code, size] = firstCharacter(text);
        const std::string_view bytes = text.substr(0, size);
        if (code == '\\') {
            form += "\\\\";
        } else if (isPrintable(code)) {
            form += bytes;
        } else {
            appendBytes(form, bytes);
        }
        text.remove_prefix(size);
    }
    return form;
}

std::string validUtf8(std::string_view text) {
    std::string form;
    while (!text.empty()) {
        const auto [code, size] = firstCharacter(text);
        if (code == Character::kNone) {
            appendBytes(form, text.substr(0, size));
        } else {
            form += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return form;
}

size_t countCharacters(std::string_view text) {
    return static_cast<size_t>(std::ranges::count_if(text, [](char byte) { return (byte & 0xc0) != 0x80; }));
}

}  // namespace host
