#include "sampling/expression.h"

#include <bit>
#include <cctype>
#include <cstring>
#include <cwchar>
#include <cwctype>

namespace qos {
namespace {

constexpr uint32_t kPlaces = 32;  // before, between and behind the characters of a text
constexpr uint32_t kMostRepeats = 0x7FFF;

// The pieces of the text that an expression takes: bit j of row i stands for the piece from place i to place j.
struct Pieces {
    uint32_t from[kPlaces];
};

uint8_t upper(char character) {
    return static_cast<uint8_t>(toupper(static_cast<uint8_t>(character)));
}

// Reads an expression once, from left to right, and works out what each part takes as it goes.
class Finder {
  public:
    Finder(const char* expression, const char* text, uint32_t length)
        : next_(expression), end_(expression + strlen(expression)), length_(length) {
        for (uint32_t i = 0; i < length; ++i) {
            text_[i] = upper(text[i]);
        }
    }

    Found find() {
        const Pieces whole = alternatives(0);
        uint32_t any = 0;
        for (uint32_t place = 0; place <= length_; ++place) {
            any |= whole.from[place];
        }
        return invalid_ || any == 0 ? Found::no : Found::yes;
    }

  private:
    // An element of a bracket expression: a character, or what else the characters of the text are that it takes.
    struct Element {
        bool isCharacter;
        uint8_t character;
        uint32_t characters;
    };

    bool isOver() const { return next_ == end_; }
    bool sees(char character, size_t ahead = 0) const {
        return static_cast<size_t>(end_ - next_) > ahead && next_[ahead] == character;
    }
    bool take(char character) {
        const bool taken = sees(character);
        next_ += taken ? 1 : 0;
        return taken;
    }
    // The C library overlooks that a comma or a 0 between braces is escaped.
    bool takePerhapsEscaped(char character) {
        next_ += sees('\\') && sees(character, 1) ? 1 : 0;
        return take(character);
    }
    bool takeDigit() {
        const bool isDigit = !isOver() && *next_ >= '1' && *next_ <= '9';
        next_ += isDigit ? 1 : 0;
        return isDigit || takePerhapsEscaped('0');
    }
    void refuse() {
        invalid_ = true;
        next_ = end_;
    }

    template <class Holds>
    Pieces where(Holds holds) const {  // empty pieces
        Pieces pieces;
        for (uint32_t place = 0; place <= length_; ++place) {
            pieces.from[place] = static_cast<uint32_t>(holds(place)) << place;
        }
        return pieces;
    }
    Pieces nothing() const {
        return where([](uint32_t) { return true; });
    }
    Pieces oneOf(uint32_t characters) const {
        Pieces pieces;
        for (uint32_t place = 0; place <= length_; ++place) {
            pieces.from[place] = (characters >> place & 1) << place << 1;
        }
        return pieces;
    }
    template <class Is>
    uint32_t charactersThat(Is is) const {
        uint32_t characters = 0;
        for (uint32_t i = 0; i < length_; ++i) {
            characters |= static_cast<uint32_t>(is(text_[i])) << i;
        }
        return characters;
    }
    uint32_t equalTo(uint8_t character) const {
        return charactersThat([=](uint8_t each) { return each == character; });
    }
    uint32_t all() const { return (1U << length_) - 1; }

    Pieces either(Pieces one, const Pieces& other) const {
        for (uint32_t place = 0; place <= length_; ++place) {
            one.from[place] |= other.from[place];
        }
        return one;
    }
    Pieces joined(const Pieces& first, const Pieces& second) const {
        Pieces pieces;
        for (uint32_t place = 0; place <= length_; ++place) {
            pieces.from[place] = 0;
            for (uint32_t middles = first.from[place]; middles != 0; middles &= middles - 1) {
                pieces.from[place] |= second.from[std::countr_zero(middles)];
            }
        }
        return pieces;
    }
    // Any number of times: from a place to all that it leads to, by Warshall's algorithm.
    Pieces repeated(const Pieces& once) const {
        Pieces pieces = either(once, nothing());
        for (uint32_t middle = 0; middle <= length_; ++middle) {
            for (uint32_t place = 0; place <= length_; ++place) {
                pieces.from[place] |= (pieces.from[place] >> middle & 1) != 0 ? pieces.from[middle] : 0;
            }
        }
        return pieces;
    }
    Pieces repeated(Pieces once, uint32_t times) const {
        Pieces pieces = nothing();
        for (; times != 0; times >>= 1) {
            if ((times & 1) != 0) {
                pieces = joined(pieces, once);
            }
            once = joined(once, once);
        }
        return pieces;
    }

    Pieces alternatives(uint32_t depth) {
        Pieces pieces = branch(depth);
        while (take('|')) {
            pieces = either(pieces, branch(depth));
        }
        return pieces;
    }
    Pieces branch(uint32_t depth) {
        Pieces pieces = nothing();
        while (!isOver() && !sees('|') && (depth == 0 || !sees(')'))) {
            pieces = joined(pieces, part(depth));
        }
        return pieces;
    }
    // An anchor, which cannot be repeated, or an atom with its repeats.
    Pieces part(uint32_t depth) {
        const char first = *next_++;
        if (first == '^') {
            return where([](uint32_t place) { return place == 0; });
        }
        if (first == '$') {
            return where([this](uint32_t place) { return place == length_; });
        }
        if (first == '\\' && !isOver() && strchr("<>bB`'", *next_) != nullptr) {
            return boundary(*next_++);
        }
        Pieces pieces = atom(first, depth);
        while (!isOver() && strchr("*+?{", *next_) != nullptr) {
            pieces = repeats(pieces);
        }
        return pieces;
    }
    Pieces atom(char first, uint32_t depth) {
        switch (first) {
            case '(': {
                const Pieces inner = alternatives(depth + 1);
                if (!take(')')) {
                    refuse();
                }
                return inner;
            }
            case '[':
                return oneOf(bracket());
            case '\\':
                return oneOf(escaped());
            case '.':
                return oneOf(all());
            case '*':
            case '+':
            case '?':
            case '{':
                refuse();
                return nothing();
            default:  // among them a ")" too many
                return oneOf(equalTo(upper(first)));
        }
    }
    Pieces repeats(const Pieces& once) {
        switch (*next_++) {
            case '*':
                return repeated(once);
            case '+':
                return joined(once, repeated(once));
            case '?':
                return either(once, nothing());
            default:
                break;
        }
        uint32_t least = 0;
        uint32_t most = 0;
        const bool hasLeast = number(least);
        const bool isRange = takePerhapsEscaped(',');
        const bool hasMost = isRange ? number(most) : hasLeast;
        most = isRange ? most : least;
        if (!take('}') || (!hasLeast && !isRange) || (hasMost && least > most) ||
            (hasMost ? most : least) > kMostRepeats) {
            refuse();
            return nothing();
        }
        return joined(repeated(once, least),
                      hasMost ? repeated(either(once, nothing()), most - least) : repeated(once));
    }
    bool number(uint32_t& number) {
        const char* start = next_;
        while (takeDigit()) {
            number = number > kMostRepeats ? number : number * 10 + static_cast<uint32_t>(next_[-1] - '0');
        }
        return next_ != start;
    }

    // GNU's anchors.
    bool isWord(uint32_t i) const { return i < length_ && (isalnum(text_[i]) != 0 || text_[i] == '_'); }
    Pieces boundary(char kind) const {
        return where([=, this](uint32_t place) {
            const bool before = place > 0 && isWord(place - 1);
            const bool behind = isWord(place);
            switch (kind) {
                case '<':
                    return !before && behind;
                case '>':
                    return before && !behind;
                case 'b':
                    return before != behind;
                case 'B':
                    return before == behind;
                case '`':
                    return place == 0;
                default:
                    return place == length_;
            }
        });
    }
    uint32_t escaped() {
        if (isOver()) {
            refuse();
            return 0;
        }
        const auto character = static_cast<uint8_t>(*next_++);
        const uint32_t words = charactersThat([](uint8_t each) { return isalnum(each) != 0 || each == '_'; });
        const uint32_t spaces = charactersThat([](uint8_t each) { return isspace(each) != 0; });
        switch (character) {
            case 'w':
                return words;
            case 'W':
                return all() & ~words;
            case 's':
                return spaces;
            case 'S':
                return all() & ~spaces;
            default:
                if (character >= '1' && character <= '9') {
                    refuse();  // a back-reference, for which no bound is known
                }
                return equalTo(character);  // as it stands: an escaped small letter equals none
        }
    }

    // Behind "[". The characters of the text that it takes.
    uint32_t bracket() {
        const bool isNegated = take('^');
        uint32_t characters = 0;
        bool isFirst = true;
        do {
            const Element start = element(isFirst);
            isFirst = false;
            characters |= start.characters;
            // A "-" before the closing bracket is one of the characters.
            if (start.isCharacter && sees('-') && !sees(']', 1)) {
                ++next_;
                const Element end = element(true);
                if (!end.isCharacter || start.character > end.character) {
                    refuse();
                }
                characters |=
                    charactersThat([&](uint8_t each) { return each >= start.character && each <= end.character; });
            }
            if (isOver()) {
                refuse();
                return 0;
            }
        } while (!take(']'));
        return isNegated ? all() & ~characters : characters;
    }
    Element element(bool mayBeHyphen) {
        if (isOver()) {
            refuse();
            return {};
        }
        const char first = *next_;
        if (first == '[' && (sees('.', 1) || sees('=', 1) || (sees(':', 1) && end_ - next_ > 2))) {
            return named();
        }
        if (first == '-' && !mayBeHyphen && !sees(']', 1)) {
            refuse();
            return {};
        }
        ++next_;
        return {true, upper(first), equalTo(upper(first))};
    }
    // "[.x.]", "[=x=]" or "[:class:]".
    Element named() {
        const char kind = next_[1];
        next_ += 2;
        char name[kPlaces];
        uint32_t length = 0;
        while (!isOver() && !(sees(kind) && sees(']', 1)) && length < sizeof name - 1) {
            name[length++] = *next_++;
        }
        name[length] = '\0';
        if (!take(kind) || !take(']')) {
            refuse();
            return {};
        }
        if (kind != ':') {
            if (length != 1) {
                refuse();
            }
            return {kind == '.', upper(name[0]), equalTo(upper(name[0]))};
        }
        const bool isCased = strcmp(name, "upper") == 0 || strcmp(name, "lower") == 0;
        const wctype_t kindOfCharacter = wctype(isCased ? "alpha" : name);
        if (kindOfCharacter == 0) {
            refuse();
        }
        return {false, 0, charactersThat([=](uint8_t each) { return iswctype(btowc(each), kindOfCharacter) != 0; })};
    }

    const char* next_;
    const char* const end_;
    const uint32_t length_;
    uint8_t text_[kPlaces];  // in capitals, which is how the C library leaves the case aside
    bool invalid_ = false;
};

}  // namespace

Found find(const char* expression, const char* text) {
    const size_t length = strnlen(text, kPlaces);
    return length == kPlaces || memchr(text, '\n', length) != nullptr
               ? Found::unknown
               : Finder(expression, text, static_cast<uint32_t>(length)).find();
}

}  // namespace qos
