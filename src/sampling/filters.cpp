#include <regex.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "nivex_qos/filter.h"
#include "platform/bounded.h"
#include "platform/device_db.h"
#include "sampling/expression.h"

namespace {

constexpr char kDigits[] = "([0-9]*)";
constexpr size_t kDigitsLen = sizeof kDigits - 1;
constexpr size_t kExpressionSize = 2 + QOS_TLM_PATTERN_MAX * kDigitsLen + 1;

// Characters that end a run of plain ones: the operators of an extended regular expression but ".", and NUL.
constexpr char kOperators[] = "[](){}^$\\+?|";

constexpr std::array<bool, 256> kNotPlain = [] {
    std::array<bool, 256> notPlain{};
    for (const char character : kOperators) {  // with its NUL
        notPlain[static_cast<uint8_t>(character)] = true;
    }
    for (size_t byte = 0x80; byte < notPlain.size(); ++byte) {
        notPlain[byte] = true;  // what a character is, is then the locale's
    }
    return notPlain;
}();

bool isAscii(char character) {
    return static_cast<uint8_t>(character) < 0x80;
}
bool isAscii(const char* text) {
    return std::all_of(text, text + strlen(text), [](char character) { return isAscii(character); });
}

// One character of a pattern, not "*", against one of a name, both ASCII. The cases of a letter differ in one bit;
// whether they count as the same letter is the locale's to say.
bool sameCharacter(char wanted, char character) {
    return wanted == character || wanted == '.' ||
           ((wanted ^ character) == ('a' ^ 'A') && toupper(wanted) == toupper(character));
}

// Positions of a pattern that a name can have reached, one bit each; behind "*" also without any digit.
uint64_t withoutDigits(uint64_t positions, uint64_t stars) {
    for (uint64_t more = positions & stars; more != 0; more = (more << 1) & stars) {
        positions |= more << 1;
    }
    return positions;
}

// Matches a pattern of plain characters, "." and "*" by following all its positions at once. Nothing: the name is not
// ASCII throughout.
std::optional<bool> matchDirectly(const char* pattern, size_t length, const char* name) {
    // Up to the first star there is but one position.
    size_t head = 0;
    for (; head < length && pattern[head] != '*'; ++head, ++name) {
        if (!isAscii(*name)) {
            return std::nullopt;
        }
        if (*name == '\0' || !sameCharacter(pattern[head], *name)) {
            return false;
        }
    }
    uint64_t stars = 0;
    for (size_t i = head; i < length; ++i) {
        stars |= static_cast<uint64_t>(pattern[i] == '*') << i;
    }
    const uint64_t end = uint64_t{1} << length;
    uint64_t positions = withoutDigits(uint64_t{1} << head, stars);
    for (; *name != '\0' && positions != 0; ++name) {
        if (!isAscii(*name)) {
            return std::nullopt;
        }
        uint64_t next = *name >= '0' && *name <= '9' ? positions & stars : 0;
        for (uint64_t left = positions & ~stars & ~end; left != 0; left &= left - 1) {
            const uint64_t position = left & -left;
            if (sameCharacter(pattern[std::countr_zero(position)], *name)) {
                next |= position << 1;
            }
        }
        positions = withoutDigits(next, stars);
    }
    return (positions & end) != 0;
}

// Whether a pattern has a back-reference, or what looks like one: inside brackets it is none.
bool mayReferBack(const char* pattern) {
    const char* escape = strchr(pattern, '\\');
    while (escape != nullptr && (escape[1] < '1' || escape[1] > '9')) {
        escape = strchr(escape + 1, '\\');
    }
    return escape != nullptr;
}

// What is left for the C library: characters of several bytes. It copies what "+" and "{}" repeat, and copies of copies
// take it minutes or overflow its stack, so there one "+" is all that a pattern may have; back-references do the same.
bool matchByLibrary(const char* pattern, const char* expression, const char* name) {
    const char* repeat = strpbrk(pattern, "+{");
    if ((repeat != nullptr && (*repeat == '{' || strpbrk(repeat + 1, "+{") != nullptr)) || mayReferBack(pattern)) {
        return false;
    }
    regex_t compiled;
    if (regcomp(&compiled, expression, REG_EXTENDED | REG_ICASE) != 0) {
        return false;
    }
    regmatch_t match;
    const int result = regexec(&compiled, name, 1, &match, 0);
    regfree(&compiled);
    return result == 0;
}

bool matchByExpression(const char* pattern, const char* name) {
    char expression[kExpressionSize];
    char* end = expression;
    *end++ = '^';
    for (const char* next = pattern; *next != '\0'; ++next) {
        if (*next == '*') {
            memcpy(end, kDigits, kDigitsLen);
            end += kDigitsLen;
        } else {
            *end++ = *next;
        }
    }
    *end++ = '$';
    *end = '\0';

    const bool bytesAreCharacters = MB_CUR_MAX == 1 || (isAscii(pattern) && isAscii(name));
    const qos::Found found = bytesAreCharacters ? qos::find(expression, name) : qos::Found::unknown;
    return found == qos::Found::unknown ? matchByLibrary(pattern, expression, name) : found == qos::Found::yes;
}

bool passes(const QosTlmThreshold& threshold, uint32_t value) {
    const auto limit = static_cast<uint32_t>(threshold.value);
    switch (threshold.op) {
        case QOS_TLM_OP_EQUAL:
            return value == limit;
        case QOS_TLM_OP_GREATER:
            return value > limit;
        case QOS_TLM_OP_GREATER_EQUAL:
            return value >= limit;
        case QOS_TLM_OP_LESS:
            return value < limit;
        case QOS_TLM_OP_LESS_EQUAL:
            return value <= limit;
        default:
            return false;
    }
}

struct ServiceClass {
    const char* name;
    uint32_t queueId;
};

// Best effort ("be") is queue 0, and so is every unknown name.
constexpr ServiceClass kServiceClasses[] = {
    {"af1", 1}, {"af2", 2}, {"af3", 3}, {"af4", 4}, {"ef", 5}, {"cs6", 6}, {"cs7", 7},
};

}  // namespace

uint32_t QOS_TLM_CheckIfName(const char* pattern, const char* name, uint32_t) {
    if (pattern == nullptr || name == nullptr) {
        return 0;
    }
    size_t plain = 0;
    while (!kNotPlain[static_cast<uint8_t>(pattern[plain])]) {
        ++plain;
    }
    const bool isPlain = pattern[plain] == '\0';
    if ((isPlain ? plain : strnlen(pattern, QOS_TLM_PATTERN_MAX + 1)) > QOS_TLM_PATTERN_MAX) {
        return 0;
    }
    const std::optional<bool> direct = isPlain ? matchDirectly(pattern, plain, name) : std::nullopt;
    return direct.has_value() ? *direct : matchByExpression(pattern, name);
}

uint32_t QOS_TLM_ThresholdFilter(const QosTlmQueryParam* request, uint32_t value) {
    if (request == nullptr) {
        return 0;
    }
    const bool first = passes(request->thresholds[0], value);
    if (request->thresholdNum < 2) {
        return first ? 1 : 0;
    }
    const bool second = passes(request->thresholds[1], value);
    switch (request->thresholdRelation) {
        case QOS_TLM_RELATION_AND:
            return first && second ? 1 : 0;
        case QOS_TLM_RELATION_SECOND:
            return second ? 1 : 0;
        default:
            return 0;
    }
}

uint32_t QOS_TLM_ParsesString2Number(const char* text, uint32_t* number) {
    errno = 0;
    if (text == nullptr || number == nullptr) {
        return 1;
    }
    char* end = nullptr;
    const unsigned long value = strtoul(text, &end, 10);
    if (end == text || *end != '\0' || (value == ULONG_MAX && errno == ERANGE)) {
        return 1;
    }
    *number = static_cast<uint32_t>(value);
    return 0;
}

uint32_t QOS_TLM_StrSlot2IntSlot(const char* text, uint32_t* slot) {
    if (text == nullptr || slot == nullptr) {
        return 1;
    }
    if (strchr(text, '/') == nullptr) {
        return QOS_TLM_ParsesString2Number(text, slot);
    }
    uint32_t first = 0;
    uint32_t second = 0;
    if (sscanf_s(text, "%u/%u", &first, &second) < 2) {
        return 1;
    }
    return DEVM_DB_GetGlobalSlotIdByLocalSlotId(slot, second, first);
}

void QOS_TLM_ParsesServiceClassToQueueId(const char* name, uint32_t* queueId) {
    if (name == nullptr || queueId == nullptr) {
        return;
    }
    *queueId = 0;
    for (const ServiceClass& serviceClass : kServiceClasses) {
        if (strcmp(name, serviceClass.name) == 0) {
            *queueId = serviceClass.queueId;
            return;
        }
    }
}
