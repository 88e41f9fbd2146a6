#include "sampling/name_pattern.h"

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "nivex_qos/filter.h"

namespace qos {
namespace {

// Letters are compared as capitals.
uint8_t upper(char character) {
    return static_cast<uint8_t>(character >= 'a' && character <= 'z' ? character - 'a' + 'A' : character);
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

// --- Patterns of plain characters, "." and "*" -------------------------------------------------------------------

constexpr std::array<bool, 256> kEndsPlain = [] {
    std::array<bool, 256> ends{};
    for (const char character : "[](){}^$\\+?|") {  // with its NUL
        ends[static_cast<uint8_t>(character)] = true;
    }
    return ends;
}();

bool isSame(char wanted, char character) {
    return wanted == character || wanted == '.' || upper(wanted) == upper(character);
}

bool matchesPlain(std::string_view pattern, const char* name) {
    size_t star = 0;  // the first
    for (; star < pattern.size() && pattern[star] != '*'; ++star, ++name) {
        if (*name == '\0' || !isSame(pattern[star], *name)) {
            return false;
        }
    }
    uint64_t stars = 0;
    for (size_t i = star; i < pattern.size(); ++i) {
        stars |= static_cast<uint64_t>(pattern[i] == '*') << i;
    }
    const uint64_t end = uint64_t{1} << pattern.size();
    // From there on follows all positions of the pattern that the name can have reached, one bit each.
    for (uint64_t positions = uint64_t{1} << star; positions != 0; ++name) {
        for (uint64_t more = positions & stars; more != 0; more = (more << 1) & stars) {
            positions |= more << 1;  // without a digit
        }
        if (*name == '\0') {
            return (positions & end) != 0;
        }
        uint64_t next = isDigit(*name) ? positions & stars : 0;
        for (uint64_t left = positions & ~stars & ~end; left != 0; left &= left - 1) {
            if (isSame(pattern[static_cast<size_t>(std::countr_zero(left))], *name)) {
                next |= (left & -left) << 1;
            }
        }
        positions = next;
    }
    return false;
}

// --- Patterns with operators -------------------------------------------------------------------------------------

constexpr std::string_view kDigits = "([0-9]*)";
constexpr size_t kMostRepeats = 0x7FFF;
constexpr size_t kNoEnd = SIZE_MAX;
constexpr int kMostSteps = 256;  // of a pattern with its counts written out; what the time and the stack depend on

// Characters by their codes, in capitals.
using Set = std::bitset<256>;

void addRange(Set& set, int first, int last) {
    for (; first <= last; ++first) {
        set[static_cast<size_t>(first)] = true;
    }
}

// Sets as the first and last characters of ranges.
constexpr std::string_view kSpace = "\t\r  ";
constexpr std::string_view kWord = "09AZ__";
constexpr std::pair<std::string_view, std::string_view> kClasses[] = {
    {"alnum", "09AZ"}, {"alpha", "AZ"}, {"blank", "\t\t  "},   {"cntrl", "\x01\x1F\x7F\x7F"},
    {"digit", "09"},   {"graph", "!~"}, {"lower", "AZ"},       {"print", " ~"},
    {"space", kSpace}, {"upper", "AZ"}, {"punct", "!/:@[`{~"}, {"xdigit", "09AF"},
};

void addRanges(Set& set, std::string_view ranges) {
    for (size_t i = 0; i < ranges.size(); i += 2) {
        addRange(set, ranges[i], ranges[i + 1]);
    }
}

void invert(Set& set) {
    set.flip();
    set[0] = false;  // NUL ends the name
}

bool isWord(char character) {
    const uint8_t capital = upper(character);
    return isDigit(character) || (capital >= 'A' && capital <= 'Z') || capital == '_';
}

// Whether the escape of a place, as the "<" of "\<", fits one of a name.
bool isAt(uint8_t escape, const char* name, size_t place) {
    const bool before = place > 0 && isWord(name[place - 1]);
    const bool behind = isWord(name[place]);
    switch (escape) {
        case '`':
            return place == 0;
        case '\'':
            return name[place] == '\0';
        case '<':
            return !before && behind;
        case '>':
            return before && !behind;
        default:
            return (before != behind) == (escape == 'b');
    }
}

// What an expression asks for, one thing a step.
struct Step {
    enum Kind : uint8_t { character, set, place, either, jump, end };
    Kind kind;
    uint8_t value;  // the character, the number of the set or the escape of the place
    int16_t way;    // to the other step that may come next
};

// An expression as steps, read once from left to right. Each part adds its own and gives the length of the shortest
// text that it takes.
class Expression {
  public:
    Expression(const char* text, size_t nameLength) : next_(text), nameLength_(nameLength) {
        alternatives(0);
        add(Step::end, 0);
    }

    // Whether a part of the name matches: follows, place by place, all steps that can have been reached.
    bool isFoundIn(const char* name) const {
        int16_t reached[kMostSteps];
        bool isReached[kMostSteps] = {};
        int count = 0;
        const auto reach = [&](int step) {
            if (!isReached[step]) {
                isReached[step] = true;
                reached[count++] = static_cast<int16_t>(step);
            }
        };
        for (size_t place = 0; place <= nameLength_ && !isInvalid_; ++place) {
            int takers = 0;  // the steps that ask for a character, moved to the front
            reach(0);
            for (int i = 0; i < count; ++i) {
                const int here = reached[i];
                const Step& step = steps_[here];
                if (step.kind == Step::character || step.kind == Step::set) {
                    reached[takers++] = static_cast<int16_t>(here);
                } else if (step.kind == Step::either || (step.kind == Step::place && isAt(step.value, name, place))) {
                    reach(here + 1);
                }
                if (step.way != 0) {
                    reach(here + step.way);
                }
            }
            if (isReached[size_ - 1]) {
                return true;
            }
            count = 0;
            std::fill_n(isReached, size_, false);
            const uint8_t character = upper(name[place]);
            for (int i = 0; i < takers; ++i) {
                const Step& step = steps_[reached[i]];
                if (step.kind == Step::set ? sets_[step.value][character] : step.value == character) {
                    reach(reached[i] + 1);
                }
            }
        }
        return false;
    }

  private:
    bool sees(char character) const { return *next_ == character; }
    bool seesOneOf(std::string_view characters) const { return characters.find(*next_) != characters.npos; }
    bool take(char character) {
        const bool taken = sees(character);
        next_ += taken ? 1 : 0;
        return taken;
    }
    void refuse() {
        isInvalid_ = true;
        next_ = "";
    }

    int add(Step::Kind kind, int value, int way = 0) {
        if (size_ == kMostSteps) {
            refuse();
            --size_;
        }
        steps_[size_] = {kind, static_cast<uint8_t>(value), static_cast<int16_t>(way)};
        return size_++;
    }
    // The steps from start on may be passed over.
    void makeOptional(int start) {
        if (size_ == start + 1 && steps_[start].kind <= Step::set) {
            steps_[start].way = 1;
        } else {
            insertEither(start, size_ - start + 1);
        }
    }
    void insertEither(int start, int way) {
        const int last = add(Step::either, 0, way);
        std::rotate(steps_ + start, steps_ + last, steps_ + last + 1);
    }
    void addCopy(int start, int length) {
        for (int i = 0; i < length && !isInvalid_; ++i) {
            const Step& step = steps_[start + i];
            add(step.kind, step.value, step.way);
        }
    }
    Set& addSet(std::string_view ranges = {}) {
        add(Step::set, setCount_);
        addRanges(sets_[setCount_], ranges);
        return sets_[setCount_++];
    }

    size_t alternatives(int depth) {
        const int start = size_;
        size_t shortest = branch(depth);
        while (take('|')) {
            insertEither(start, size_ - start + 2);
            const int over = add(Step::jump, 0);
            shortest = std::min(shortest, branch(depth));
            steps_[over].way = static_cast<int16_t>(size_ - over);
        }
        return shortest;
    }
    size_t branch(int depth) {
        size_t shortest = 0;
        while (!sees('\0') && !sees('|') && (depth == 0 || !sees(')'))) {
            shortest += part(depth);
        }
        return shortest;
    }
    size_t part(int depth) {
        const int start = size_;
        size_t shortest = 1;
        const char first = *next_++;
        if (first == '^' || first == '$' || (first == '\\' && seesOneOf("<>bB`'"))) {
            add(Step::place, first == '^' ? '`' : first == '$' ? '\'' : *next_++);
            return 0;  // and cannot be repeated
        }
        if (first == '(') {
            shortest = alternatives(depth + 1);
            if (!take(')')) {
                refuse();
            }
        } else if (first == '[') {
            bracket(addSet());
        } else if (first == '.') {
            invert(addSet());
        } else if (first == '\\' && seesOneOf("wWsS")) {
            Set& set = addSet(seesOneOf("wW") ? kWord : kSpace);
            if (seesOneOf("WS")) {
                invert(set);
            }
            ++next_;
        } else {
            // No back-references, for which no bound is known, and no operators with nothing to repeat.
            const std::string_view refused = first == '\\' ? "123456789" : "*+?{";
            const char character = first == '\\' ? *next_++ : first;  // perhaps a ")" too many
            if (refused.find(character) != refused.npos) {
                refuse();
            }
            add(Step::character, upper(character));
        }
        while (seesOneOf("*+?{")) {
            shortest = repeated(start, shortest);
        }
        return shortest;
    }

    // The steps from start on, with the operator behind them.
    size_t repeated(int start, size_t shortest) {
        size_t least = sees('+') ? 1 : 0;
        size_t most = sees('?') ? 1 : kNoEnd;
        if (*next_++ == '{') {
            counts(least, most);
        }
        if (most == 0) {
            size_ = start;
            return 0;
        }
        // The name has room for no more, or for any number of empty ones.
        const size_t enough = nameLength_ / std::max<size_t>(shortest, 1) + 1;
        least = std::min(least, enough);
        const int length = size_ - start;
        size_t copies = 1;
        for (; copies < least; ++copies) {
            addCopy(start, length);
        }
        if (most >= enough) {
            add(Step::either, 0, -length);
        } else {
            for (; copies < most; ++copies) {
                addCopy(start, length);
                makeOptional(size_ - length);
            }
        }
        if (least == 0) {
            makeOptional(start);
        }
        return shortest * least;
    }
    // "{2}", "{2,}", "{,3}" or "{2,3}", behind "{".
    void counts(size_t& least, size_t& most) {
        const bool hasLeast = number(least);
        const bool isRange = take(',');
        most = least;
        if (isRange && !number(most = 0)) {
            most = kNoEnd;
        }
        if ((!hasLeast && !isRange) || least > most || (most == kNoEnd ? least : most) > kMostRepeats || !take('}')) {
            refuse();
        }
    }
    bool number(size_t& number) {
        const char* start = next_;
        for (; isDigit(*next_); ++next_) {
            number = std::min(kMostRepeats + 1, number * 10 + static_cast<size_t>(*next_ - '0'));
        }
        return next_ != start;
    }

    // Behind "[".
    void bracket(Set& set) {
        const bool isInverted = take('^');
        for (bool isFirst = true; isFirst || !take(']'); isFirst = false) {
            const int first = element(set, isFirst);
            // A "-" before the closing bracket is one of the characters.
            const bool isRange = first != kClass && sees('-') && next_[1] != ']';
            next_ += isRange ? 1 : 0;
            const int last = isRange ? element(set, true) : first;
            if (sees('\0') || last < first) {
                refuse();
                return;
            }
            if (first != kClass) {
                addRange(set, first, last);
            }
        }
        if (isInverted) {
            invert(set);
        }
    }
    // A character, or a class, which joins the set.
    static constexpr int kClass = -1;
    int element(Set& set, bool mayBeHyphen) {
        if (sees('[') && (next_[1] == '.' || next_[1] == '=' || next_[1] == ':')) {
            return named(set);
        }
        if (sees('\0') || (sees('-') && !mayBeHyphen && next_[1] != ']')) {
            refuse();
            return kClass;
        }
        return upper(*next_++);
    }
    // "[.x.]", "[=x=]" or "[:class:]".
    int named(Set& set) {
        const char closing[] = {next_[1], ']', '\0'};
        const char* start = next_ + 2;
        const char* end = strstr(start, closing);
        const std::string_view name(start, end == nullptr ? 0 : static_cast<size_t>(end - start));
        next_ = end == nullptr ? next_ : end + 2;
        if (closing[0] != ':' && name.size() == 1) {
            return upper(name[0]);
        }
        for (const auto& [className, ranges] : kClasses) {
            if (closing[0] == ':' && name == className) {
                addRanges(set, ranges);
                return kClass;
            }
        }
        refuse();
        return kClass;
    }

    const char* next_;
    const size_t nameLength_;
    bool isInvalid_ = false;
    int size_ = 0;
    int setCount_ = 0;
    Step steps_[kMostSteps];
    Set sets_[QOS_TLM_PATTERN_MAX];  // each takes a character of the pattern at least
};

bool matchesExpression(std::string_view pattern, const char* name) {
    char expression[QOS_TLM_PATTERN_MAX * kDigits.size() + sizeof "^$"];
    char* end = expression;
    *end++ = '^';
    for (const char character : pattern) {
        const std::string_view part = character == '*' ? kDigits : std::string_view(&character, 1);
        end = std::copy(part.begin(), part.end(), end);
    }
    *end++ = '$';
    *end = '\0';
    return Expression(expression, strlen(name)).isFoundIn(name);
}

}  // namespace

bool matches(const char* pattern, const char* name) {
    size_t length = 0;
    while (!kEndsPlain[static_cast<uint8_t>(pattern[length])]) {
        ++length;
    }
    if (pattern[length] == '\0') {
        return length <= QOS_TLM_PATTERN_MAX && matchesPlain({pattern, length}, name);
    }
    length += strnlen(pattern + length, QOS_TLM_PATTERN_MAX + 1);
    return length <= QOS_TLM_PATTERN_MAX && matchesExpression({pattern, length}, name);
}

}  // namespace qos
