#include "devhost/cli/request.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "devhost/cli/exit.h"

namespace host {

namespace {

// Copies a text of the command line into a field of the request, which is zero and longer than the text.
template <size_t size>
void setText(char (&field)[size], std::string_view text) {
    std::copy(text.begin(), text.end(), field);
}

// Whether a pattern refers back to one of its groups, as in "(a)\1". In a bracket a backslash stands for itself:
// "[\1]" is refused all the same.
bool hasBackReference(std::string_view pattern) {
    for (size_t at = 0; at + 1 < pattern.size(); ++at) {
        if (pattern[at] == '\\' && pattern[++at] >= '1' && pattern[at] <= '9') {
            return true;
        }
    }
    return false;
}

bool parseNumber(std::string_view text, uint32_t& number) {
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && rest == text.data() + text.size();
}

struct Operator {
    std::string_view sign;
    QosTlmThresholdOp code;
};

constexpr Operator kOperators[] = {
    {"=", QOS_TLM_OP_EQUAL},          {"==", QOS_TLM_OP_EQUAL}, {">", QOS_TLM_OP_GREATER},
    {">=", QOS_TLM_OP_GREATER_EQUAL}, {"<", QOS_TLM_OP_LESS},   {"<=", QOS_TLM_OP_LESS_EQUAL},
};

}  // namespace

void addCondition(QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry, std::string_view text) {
    const auto refuse = [text](const std::string& why) {
        throw UsageError(fmt::format("--where '{}': {}", text, why));
    };
    if (request.conditionNum == QOS_TLM_CONDITION_MAX) {
        refuse(fmt::format("a request carries at most {} conditions", QOS_TLM_CONDITION_MAX));
    }
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals + 1 == text.size()) {
        refuse("write FIELD=VALUE");
    }
    const std::string_view field = text.substr(0, equals);
    const std::string_view value = text.substr(equals + 1);
    const std::vector<Condition> honoured = entry != nullptr ? entry->conditions : std::vector<Condition>{};
    const auto condition =
        std::find_if(honoured.begin(), honoured.end(), [field](const Condition& each) { return each.field == field; });
    if (condition == honoured.end()) {
        refuse(honoured.empty() ? fmt::format("{} honours no condition", alias)
                                : fmt::format("{} honours {}", alias, fmt::join(entry->conditionNames(), ", ")));
    }
    if (value.size() >= QOS_TLM_CONDITION_VALUE_SIZE) {
        refuse(fmt::format("the value has {} bytes, a request carries at most {}", value.size(),
                           QOS_TLM_CONDITION_VALUE_SIZE - 1));
    }
    if (const auto& values = condition->values;
        !values.empty() && std::find(values.begin(), values.end(), value) == values.end()) {
        refuse(fmt::format("{} takes {}", field, condition->takes));
    }
    if (condition->kind == ConditionKind::number) {
        uint32_t number = 0;
        if (!parseNumber(value, number)) {
            refuse(fmt::format("{} takes a whole number from 0 to {}", field, std::numeric_limits<uint32_t>::max()));
        }
    }
    if (condition->kind == ConditionKind::pattern && hasBackReference(value)) {
        refuse("a backslash before a digit refers back to a group, which no pattern does");
    }
    QosTlmCondition& added = request.conditions[request.conditionNum++];
    setText(added.fieldName, field);
    setText(added.value, value);
}

void addThreshold(QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry, std::string_view text) {
    const auto refuse = [text](const std::string& why) {
        throw UsageError(fmt::format("--threshold '{}': {}", text, why));
    };
    if (request.thresholdNum == QOS_TLM_THRESHOLD_MAX) {
        refuse(fmt::format("a request carries at most {} thresholds", QOS_TLM_THRESHOLD_MAX));
    }
    const size_t signBegin = std::min(text.find_first_of("=<>!"), text.size());
    const size_t signEnd = std::min(text.find_first_not_of("=<>!", signBegin), text.size());
    const std::string_view field = text.substr(0, signBegin);
    const std::string_view sign = text.substr(signBegin, signEnd - signBegin);
    const std::string_view number = text.substr(signEnd);
    const auto op = std::find_if(std::begin(kOperators), std::end(kOperators),
                                 [sign](const Operator& each) { return each.sign == sign; });
    if (op == std::end(kOperators)) {
        refuse("write FIELD, one of = == > >= < <=, and VALUE");
    }
    const std::vector<std::string> fields = entry != nullptr ? entry->thresholdNames() : std::vector<std::string>{};
    if (std::find(fields.begin(), fields.end(), field) == fields.end()) {
        refuse(fields.empty() ? fmt::format("{} compares no field", alias)
                              : fmt::format("{} compares {}", alias, fmt::join(fields, ", ")));
    }
    if (request.thresholdNum == 1 && field != request.thresholds[0].fieldName) {
        refuse(fmt::format("the first threshold names the field for both, here {}", request.thresholds[0].fieldName));
    }
    uint32_t value = 0;
    if (!parseNumber(number, value)) {
        refuse(fmt::format("the value must be a whole number from 0 to {}, since only 32 bits are compared",
                           std::numeric_limits<uint32_t>::max()));
    }
    QosTlmThreshold& added = request.thresholds[request.thresholdNum++];
    setText(added.fieldName, field);
    added.op = static_cast<uint8_t>(op->code);
    added.value = value;
}

std::string patternHint(const QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry) {
    std::vector<std::string> wanted;
    for (const QosTlmCondition& condition : std::span(request.conditions).first(request.conditionNum)) {
        const std::string_view field = condition.fieldName;
        if (entry != nullptr && std::ranges::any_of(entry->conditions, [field](const Condition& each) {
                return each.field == field && each.kind == ConditionKind::pattern;
            })) {
            wanted.push_back(fmt::format("{} '{}'", field, condition.value));
        }
    }
    return wanted.empty()
               ? ""
               : fmt::format("no record of {} passed; a pattern must match the whole name, * is a run of digits: {}",
                             alias, fmt::join(wanted, ", "));
}

}  // namespace host
