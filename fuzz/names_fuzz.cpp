// Interface-name matching against the C library's regular expressions: the pattern is the input's first line, the name
// is the rest.
#include <cstring>

#include "fuzz/input.h"
#include "nivex_qos/filter.h"
#include "tests/support/pattern_model.h"

namespace {

size_t countOf(const std::string& pattern, const char* characters) {
    return static_cast<size_t>(std::count_if(pattern.begin(), pattern.end(),
                                             [&](char character) { return strchr(characters, character) != nullptr; }));
}

// The C library needs time and memory beyond measure for some: repeats of repeats, high counts; and escapes are too
// much for the model of back-references below when there are several.
bool isCostly(const std::string& pattern) {
    size_t digits = 0;
    size_t mostDigits = 0;
    for (const char character : pattern) {
        digits = character >= '0' && character <= '9' ? digits + 1 : 0;
        mostDigits = std::max(mostDigits, digits);
    }
    const size_t counts = countOf(pattern, "{");
    return counts > 1 || (counts == 1 && (mostDigits > 1 || countOf(pattern, "+*?|") > 2)) ||
           (countOf(pattern, "+") > 1 && countOf(pattern, "+*?|(") > 4) || countOf(pattern, "\\") > 1;
}

// Where the plug-in leaves the match to the C library, it takes one "+" and no "{".
bool isRefused(const std::string& pattern, const std::string& name) {
    return (name.size() > 31 || name.find('\n') != name.npos) && countOf(pattern, "+{") > 0;
}

bool mayReferBack(const std::string& pattern) {
    const size_t escaped = pattern.find('\\') + 1;
    return escaped > 0 && escaped < pattern.size() && pattern[escaped] >= '1' && pattern[escaped] <= '9';
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const size_t line = text.find('\n');
    // As C strings: each ends at its first NUL.
    const std::string pattern = std::string(text.substr(0, line)).c_str();
    const std::string name = line == std::string_view::npos ? "" : std::string(text.substr(line + 1, 64)).c_str();
    const bool tooLong = pattern.size() > QOS_TLM_PATTERN_MAX;
    const uint32_t matches = QOS_TLM_CheckIfName(pattern.c_str(), name.c_str(), 32);
    const bool refersBack = mayReferBack(pattern);
    const bool isUnclear = refersBack && pattern.find('[') != pattern.npos;  // in brackets it is none
    if (!tooLong && (isCostly(pattern) || isRefused(pattern, name) || isUnclear)) {
        return 0;  // it came back
    }
    const bool expected = !tooLong && !refersBack && PatternModel(pattern).matches(name);
    REQUIRE(matches == (expected ? 1 : 0));
    return 0;
}
