// Interface-name matching against the C library's regular expressions: the pattern is the input's first line, the name
// is the rest.
#include <regex.h>

#include "fuzz/input.h"
#include "nivex_qos/filter.h"

namespace {

// The C library needs time and memory beyond measure for some: repeats of repeats, high counts, back-references.
bool isCostly(const std::string& pattern) {
    size_t digits = 0;
    size_t mostDigits = 0;
    for (const char character : pattern) {
        digits = character >= '0' && character <= '9' ? digits + 1 : 0;
        mostDigits = std::max(mostDigits, digits);
    }
    const auto count = [&](char character) { return std::count(pattern.begin(), pattern.end(), character); };
    // "+" and "{}" copy what they repeat.
    return count('{') > 1 || (count('{') == 1 && (mostDigits > 2 || count('+') > 1)) || count('+') > 6 ||
           count('\\') > 1;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const size_t line = text.find('\n');
    // As C strings: each ends at its first NUL.
    const std::string pattern = std::string(text.substr(0, line)).c_str();
    const std::string name = line == std::string_view::npos ? "" : std::string(text.substr(line + 1, 64)).c_str();
    const bool tooLong = pattern.size() > QOS_TLM_PATTERN_MAX;
    if (!tooLong && isCostly(pattern)) {
        return 0;
    }
    bool expected = false;
    if (!tooLong) {
        std::string expression = "^";
        for (const char character : pattern) {
            expression += character == '*' ? std::string("([0-9]*)") : std::string(1, character);
        }
        regex_t compiled;
        if (regcomp(&compiled, (expression + "$").c_str(), REG_EXTENDED | REG_ICASE) == 0) {
            regmatch_t match;
            expected = regexec(&compiled, name.c_str(), 1, &match, 0) == 0;
            regfree(&compiled);
        }
    }
    REQUIRE(QOS_TLM_CheckIfName(pattern.c_str(), name.c_str(), 32) == (expected ? 1 : 0));
    return 0;
}
