#include "devhost/outputs/exposition.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <variant>

#include "devhost/support/shown.h"

namespace outputs {

namespace {

constexpr std::string_view kOpenMetricsType = "application/openmetrics-text";

/* Takes what stands before the separator, without spaces around it, off the front. */
std::string_view takeUntil(std::string_view& rest, char separator) {
    const size_t end = std::min(rest.find(separator), rest.size());
    std::string_view part = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    const auto isSpace = [](char character) { return character == ' ' || character == '\t'; };
    while (!part.empty() && isSpace(part.front())) {
        part.remove_prefix(1);
    }
    while (!part.empty() && isSpace(part.back())) {
        part.remove_suffix(1);
    }
    return part;
}

bool equalInAnyCase(std::string_view one, std::string_view other) {
    return std::ranges::equal(one, other, [](char left, char right) {
        const auto lower = [](char letter) {
            return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + ('a' - 'A')) : letter;
        };
        return lower(left) == lower(right);
    });
}

/* A part of an Accept field. */
struct MediaRange {
    std::string_view type;
    std::string_view version = {};
    double quality = 1;
};

MediaRange mediaRangeOf(std::string_view text) {
    MediaRange range{.type = takeUntil(text, ';')};
    while (!text.empty()) {
        std::string_view value = takeUntil(text, ';');
        const std::string_view name = takeUntil(value, '=');
        if (equalInAnyCase(name, "version")) {
            range.version = value;
        } else if (equalInAnyCase(name, "q")) {
            const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), range.quality);
            if (error != std::errc{} || !(range.quality >= 0 && range.quality <= 1)) {
                range.quality = 0;
            }
        }
    }
    return range;
}

/* The name that OpenMetrics gives the metric of these samples. */
std::string_view familyOf(const host::Metric& metric) {
    std::string_view name = metric.name;
    for (const std::string_view suffix : {"_total", "_info"}) {
        if (metric.type != host::MetricType::gauge && name.ends_with(suffix)) {
            name.remove_suffix(suffix.size());
        }
    }
    return name;
}

void writeEscaped(std::string& text, std::string_view value, bool quotes) {
    for (const char character : value) {
        if (character == '\n') {
            text += "\\n";
            continue;
        }
        if (character == '\\' || (quotes && character == '"')) {
            text += '\\';
        }
        text += character;
    }
}

}  // namespace

Exposition expositionFor(std::string_view accept) {
    double openMetrics = 0;
    std::optional<double> text;
    std::optional<double> anything;
    while (!accept.empty()) {
        const MediaRange range = mediaRangeOf(takeUntil(accept, ','));
        if (equalInAnyCase(range.type, kOpenMetricsType)) {
            if (range.version.empty() || range.version == "1.0.0" || range.version == "0.0.1") {
                openMetrics = std::max(openMetrics, range.quality);
            }
        } else if (equalInAnyCase(range.type, "text/plain")) {
            text = std::max(text.value_or(0), range.quality);
        } else if (range.type == "*/*" || equalInAnyCase(range.type, "text/*")) {
            anything = std::max(anything.value_or(0), range.quality);
        }
    }
    const double other = text.value_or(anything.value_or(0));
    return openMetrics > 0 && openMetrics >= other ? Exposition::openMetrics : Exposition::prometheus;
}

std::string_view contentTypeOf(Exposition form) {
    return form == Exposition::openMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                           : "text/plain; version=0.0.4; charset=utf-8";
}

void writeMetric(std::string& text, Exposition form, const host::Metric& metric) {
    const bool openMetrics = form == Exposition::openMetrics;
    const std::string_view name = openMetrics ? familyOf(metric) : metric.name;
    std::string_view type = "gauge";
    if (metric.type == host::MetricType::counter) {
        type = "counter";
    } else if (metric.type == host::MetricType::info && openMetrics) {
        type = "info";
    }
    fmt::format_to(std::back_inserter(text), "# HELP {} ", name);
    writeEscaped(text, metric.help, openMetrics);
    fmt::format_to(std::back_inserter(text), "\n# TYPE {} {}\n", name, type);
    if (openMetrics && !metric.unit.empty()) {
        fmt::format_to(std::back_inserter(text), "# UNIT {} {}\n", name, metric.unit);
    }
}

void writeLabel(std::string& text, std::string_view name, std::string_view value) {
    text += name;
    text += "=\"";
    writeEscaped(text, host::shown(value), true);
    text += '"';
}

void writeNumber(std::string& text, uint64_t number) {
    const fmt::format_int digits(number);
    text.append(digits.data(), digits.size());
}

void writeFigure(std::string& text, Exposition form, const host::Figure& figure) {
    if (figure.samples.empty()) {
        return;
    }
    writeMetric(text, form, figure.metric);
    for (const host::Figure::Sample& sample : figure.samples) {
        text += figure.metric.name;
        char before = '{';
        for (const auto& [name, value] : sample.labels) {
            text += before;
            writeLabel(text, name, value);
            before = ',';
        }
        text += sample.labels.empty() ? " " : "} ";
        if (const auto* const number = std::get_if<uint64_t>(&sample.value)) {
            writeNumber(text, *number);
        } else {
            fmt::format_to(std::back_inserter(text), "{}", std::get<double>(sample.value));
        }
        text += '\n';
    }
}

std::string_view endOf(Exposition form) {
    return form == Exposition::openMetrics ? "# EOF\n" : "";
}

}  // namespace outputs
