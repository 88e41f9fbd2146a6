#include "devhost/support/duration.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>

#include "devhost/support/exit.h"

namespace host {

namespace {

struct Unit {
    std::string_view name;
    int64_t milliseconds;
};

// The largest unit first, so that a span is shown in the largest that divides it.
constexpr Unit kUnits[] = {{"h", 3'600'000}, {"m", 60'000}, {"s", 1'000}, {"ms", 1}};
constexpr int64_t kLongest = 366LL * 24 * 3'600'000;

}  // namespace

std::chrono::milliseconds parseDuration(std::string_view text) {
    uint64_t count = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, count);
    if (error == std::errc{}) {
        for (const Unit& unit : kUnits) {
            if (unit.name != std::string_view(rest, static_cast<size_t>(end - rest))) {
                continue;
            }
            if (count == 0 || count > static_cast<uint64_t>(kLongest / unit.milliseconds)) {
                throw UsageError(fmt::format("time span '{}' is not between 1ms and 366 days", text));
            }
            return std::chrono::milliseconds(static_cast<int64_t>(count) * unit.milliseconds);
        }
    }
    throw UsageError(
        fmt::format("'{}' is no time span: write a whole number and ms, s, m or h, as in 500ms, 1s, 2m or 1h", text));
}

std::string durationText(std::chrono::milliseconds span) {
    for (const Unit& unit : kUnits) {
        if (span.count() % unit.milliseconds == 0) {
            return fmt::format("{}{}", span.count() / unit.milliseconds, unit.name);
        }
    }
    return {};
}

}  // namespace host
