#include "devhost/outputs/path_metrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "devhost/outputs/exposition.h"
#include "devhost/sampling/leaf_texts.h"

namespace outputs {

namespace {

using Words = std::vector<std::string>;

// They are always the same.
constexpr std::array<std::string_view, 2> kLeftOut = {"record-number", "query-type"};

constexpr std::array<std::string_view, 8> kServiceClasses = {"be", "af1", "af2", "af3", "af4", "ef", "cs6", "cs7"};
constexpr std::string_view kServiceClass = "service-class";

/* The label that a leaf is; empty for one that is none. */
std::string_view labelName(std::string_view leaf) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kLabels = {
        {{"interface-name", "interface"}, {"queue-id", "queue"}, {"slot-id", "slot"}, {kServiceClass, "queue"}}};
    const auto* const found = std::ranges::find(kLabels, leaf, &std::pair<std::string_view, std::string_view>::first);
    return found == kLabels.end() ? std::string_view() : found->second;
}

Words wordsOf(std::string_view text, char between) {
    Words words;
    while (!text.empty()) {
        const size_t end = std::min(text.find(between), text.size());
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

bool endsWith(const Words& words, const Words& end) {
    return words.size() >= end.size() && std::equal(end.rbegin(), end.rend(), words.rbegin());
}

void append(Words& words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
}

/* Drops the last word if it is one of these. */
bool dropLast(Words& words, std::initializer_list<std::string_view> any) {
    if (words.empty() || std::ranges::find(any, words.back()) == any.end()) {
        return false;
    }
    words.pop_back();
    return true;
}

/* The queue that a leaf's name begins with: "queue3-drop-bytes". */
std::optional<char> queueOf(std::string_view leaf) {
    constexpr std::string_view kQueue = "queue";
    constexpr size_t kDash = kQueue.size() + 1;
    if (leaf.size() > kDash && leaf.starts_with(kQueue) && leaf[kDash] == '-' && leaf[kDash - 1] >= '0' &&
        leaf[kDash - 1] <= '9') {
        return leaf[kDash - 1];
    }
    return std::nullopt;
}

/* What becomes of a leaf besides its labels, by the last of its words and its units. */
PathMetrics::Reading applyUnits(Words& words, std::string_view units, bool isText, host::Metric& metric) {
    metric.type = host::MetricType::gauge;
    const Words unit = wordsOf(units, ' ');
    if (isText) {
        dropLast(words, {"time"});
        append(words, {"timestamp", "seconds"});
        metric.unit = "seconds";
        return PathMetrics::Reading::time;
    }
    if (units == "percent") {
        dropLast(words, {"percent", "percentage"});
        words.emplace_back("ratio");
        metric.unit = "ratio";
        return PathMetrics::Reading::percent;
    }
    if ((units == "packets" || units == "bytes") && endsWith(words, unit)) {
        metric.type = host::MetricType::counter;
    } else {
        if (endsWith(unit, {"per", "second"}) && dropLast(words, {"rate"})) {
            dropLast(words, {std::string_view(unit.front()).substr(0, unit.front().size() - 1)});
        }
        append(words, unit);
    }
    metric.unit = fmt::format("{}", fmt::join(unit, "_"));
    return PathMetrics::Reading::number;
}

/* Milliseconds since 1970 of "2026-11-24 15:48:02.291", read as UTC. */
std::optional<int64_t> timeOf(std::string_view text) {
    const auto take = [&text](size_t digits, char behind) -> std::optional<unsigned> {
        unsigned number = 0;
        digits = std::min(digits, text.size());
        const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
        if (error != std::errc{}) {
            return std::nullopt;
        }
        text.remove_prefix(static_cast<size_t>(end - text.data()));
        if (behind == '\0') {
            return text.empty() ? std::optional(number) : std::nullopt;
        }
        if (!text.starts_with(behind)) {
            return std::nullopt;
        }
        text.remove_prefix(1);
        return number;
    };
    const auto year = take(4, '-');
    const auto month = take(2, '-');
    const auto day = take(2, ' ');
    const auto hour = take(2, ':');
    const auto minute = take(2, ':');
    const auto second = take(2, '.');
    const auto millisecond = take(9, '\0');
    if (!year || !month || !day || !hour || !minute || !second || !millisecond) {
        return std::nullopt;
    }
    const auto date = std::chrono::year(static_cast<int>(*year)) / static_cast<int>(*month) / static_cast<int>(*day);
    if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) {
        return std::nullopt;
    }
    const auto time = std::chrono::sys_days(date) + std::chrono::hours(*hour) + std::chrono::minutes(*minute) +
                      std::chrono::seconds(*second) + std::chrono::milliseconds(*millisecond);
    const int64_t count = std::chrono::milliseconds(time.time_since_epoch()).count();
    return count < 0 ? std::nullopt : std::optional(count);
}

void replace(std::string& text, std::string_view what, std::string_view by) {
    if (const size_t at = text.find(what); at != std::string::npos) {
        text.replace(at, what.size(), by);
    }
}

/* The leaf's description, true of all leaves that become the metric, and where it comes from. */
std::string helpOf(const host::Catalogued& path, std::string leaf, std::string_view description) {
    std::string help(description);
    replace(help, "in percent", "as a ratio");
    if (const auto queue = queueOf(leaf)) {
        replace(help, fmt::format("queue {}", *queue), "the queue");
        replace(leaf, std::string_view(&*queue, 1), "N");
    }
    return fmt::format("{} ({}/{})", help, path.alias, leaf);
}

}  // namespace

PathMetrics pathMetrics(const host::Catalogued& path) {
    PathMetrics metrics;
    Words group = wordsOf(path.alias, '-');
    dropLast(group, {"statistics"});
    for (int index = 0; index < path.fieldCount(); ++index) {
        const std::string leaf = path.field(index).json_name();
        const bool isText = path.field(index).cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_STRING;
        const bool isLabel = !labelName(leaf).empty();
        metrics.labelsBesideKeys = metrics.labelsBesideKeys || (isLabel && !path.isKey(index));
        if (isLabel || std::ranges::find(kLeftOut, leaf) != kLeftOut.end()) {
            continue;
        }
        const auto queue = queueOf(leaf);
        const host::LeafTexts texts = host::leafTexts(path, index);
        Words words = wordsOf(queue ? leaf.substr(leaf.find('-') + 1) : leaf, '-');
        host::Metric metric;
        metric.help = helpOf(path, leaf, texts.description);
        const auto reading = applyUnits(words, texts.units, isText, metric);
        // What both names have stands once.
        size_t common = std::min(group.size(), words.size());
        while (!endsWith(group, Words(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(common)))) {
            --common;
        }
        words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(common));
        metric.name = fmt::format("qos_{}{}{}{}", fmt::join(group, "_"), words.empty() ? "" : "_",
                                  fmt::join(words, "_"), metric.type == host::MetricType::counter ? "_total" : "");
        const auto same =
            std::ranges::find(metrics.entries, metric.name, [](const auto& entry) { return entry.metric.name; });
        PathMetrics::Entry& entry =
            same == metrics.entries.end() ? metrics.entries.emplace_back(PathMetrics::Entry{metric, {}}) : *same;
        entry.leaves.push_back({.field = static_cast<size_t>(index),
                                .label = queue ? fmt::format(R"(,queue="{}")", *queue) : "",
                                .reading = reading});
    }
    return metrics;
}

std::string labelsOf(const host::Catalogued& path, const host::Record& record) {
    std::string labels;
    const auto add = [&labels](std::string_view name, std::string_view value) {
        labels += labels.empty() ? '{' : ',';
        writeLabel(labels, name, value);
    };
    for (int index = 0; index < path.fieldCount(); ++index) {
        const std::string& leaf = path.field(index).json_name();
        const host::Value& value = record.values[static_cast<size_t>(index)];
        if (const std::string_view name = labelName(leaf); !name.empty()) {
            add(name, host::textOf(value));
        }
        if (leaf == kServiceClass) {
            const uint64_t number = std::get<uint64_t>(value);
            add("service_class", number < kServiceClasses.size() ? kServiceClasses[number] : host::textOf(value));
        }
    }
    return labels;
}

bool writeValue(std::string& text, PathMetrics::Reading reading, const host::Value& value) {
    if (reading == PathMetrics::Reading::time) {
        const auto time = timeOf(std::get<std::string>(value));
        if (time) {
            fmt::format_to(std::back_inserter(text), "{}.{:03}", *time / 1000, *time % 1000);
        }
        return time.has_value();
    }
    const auto* const truth = std::get_if<bool>(&value);
    const uint64_t number = truth != nullptr ? uint64_t{*truth} : std::get<uint64_t>(value);
    writeNumber(text, reading == PathMetrics::Reading::percent ? number / 100 : number);
    if (reading == PathMetrics::Reading::percent && number % 100 != 0) {
        fmt::format_to(std::back_inserter(text), ".{:02}", number % 100);
    }
    return true;
}

}  // namespace outputs
