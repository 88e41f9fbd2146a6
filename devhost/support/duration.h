/*
 * Time spans on the command line: "500ms", "1s", "2m", "1h".
 */
#ifndef DEVHOST_SUPPORT_DURATION_H
#define DEVHOST_SUPPORT_DURATION_H

#include <chrono>
#include <string>
#include <string_view>

namespace host {

/* The span; throws UsageError, which says what is wrong, for any other text, for 0 and for more than 366 days. */
std::chrono::milliseconds parseDuration(std::string_view text);

/* The text of a span, in the largest unit that divides it. */
std::string durationText(std::chrono::milliseconds span);

}  // namespace host

#endif
