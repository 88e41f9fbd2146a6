/*
 * The two text forms in which Prometheus reads metrics: its own, version 0.0.4, and OpenMetrics 1.0.0. They differ in
 * what stands before the samples of a metric and at the end; the lines of samples are the same.
 */
#ifndef DEVHOST_OUTPUTS_EXPOSITION_H
#define DEVHOST_OUTPUTS_EXPOSITION_H

#include <cstdint>
#include <string>
#include <string_view>

#include "devhost/support/figures.h"

namespace outputs {

enum class Exposition : uint8_t { prometheus, openMetrics };

/*
 * The form to answer with, by the Accept field of a request: OpenMetrics if it is named, in a version that is written
 * here, and no less welcome than the other; any text is a right one, an empty one, too.
 */
Exposition expositionFor(std::string_view accept);

std::string_view contentTypeOf(Exposition form);

/* Appends the lines that stand before the samples of a metric. */
void writeMetric(std::string& text, Exposition form, const host::Metric& metric);

/* Appends name="value". The value may have any bytes: it is written as shown.h has it, so that no two become one. */
void writeLabel(std::string& text, std::string_view name, std::string_view value);

/* Appends the number with all its digits; a reader keeps those below 2^53 as they are. */
void writeNumber(std::string& text, uint64_t number);

/* Appends a metric with its samples; nothing when it has none. */
void writeFigure(std::string& text, Exposition form, const host::Figure& figure);

/* What stands at the end. */
std::string_view endOf(Exposition form);

}  // namespace outputs

#endif
