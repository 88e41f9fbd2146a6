/*
 * Time spans on the command line: "500ms", "1s", "2m", "1h".
 */
#ifndef DEVHOST_CLI_DURATION_H
#define DEVHOST_CLI_DURATION_H

#include <CLI/CLI.hpp>
#include <chrono>
#include <string>
#include <string_view>

namespace host {

/* The span; throws UsageError, which says what is wrong, for any other text, for 0 and for more than 366 days. */
std::chrono::milliseconds parseDuration(std::string_view text);

/* An option that takes a span; value keeps what it holds (shown as the default unless it is 0) when it is not given. */
CLI::Option* addDurationOption(CLI::App& command, const std::string& name, std::chrono::milliseconds& value,
                               const std::string& description);

}  // namespace host

#endif
