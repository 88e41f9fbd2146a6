#include "devhost/sampling/subscription.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string>
#include <vector>

#include "devhost/support/exit.h"

namespace host {

namespace {

// Copies a text into a field of the request, which is zero and longer than the text.
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

template <class... Values>
[[noreturn]] void refuse(const char* setting, fmt::format_string<Values...> why, Values&&... values) {
    throw SubscriptionError(setting, fmt::format(why, std::forward<Values>(values)...));
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

void addCondition(QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry,
                  const Subscription::Condition& wanted) {
    const auto refuseThis = [&wanted](const std::string& why) {
        refuse("where", " '{}={}': {}", wanted.field, wanted.value, why);
    };
    if (request.conditionNum == QOS_TLM_CONDITION_MAX) {
        refuseThis(fmt::format("a request carries at most {} conditions", QOS_TLM_CONDITION_MAX));
    }
    const std::vector<Condition> honoured = entry != nullptr ? entry->conditions : std::vector<Condition>{};
    const auto condition = std::ranges::find(honoured, wanted.field, &Condition::field);
    if (condition == honoured.end()) {
        refuseThis(honoured.empty() ? fmt::format("{} honours no condition", alias)
                                    : fmt::format("{} honours {}", alias, fmt::join(entry->conditionNames(), ", ")));
    }
    if (wanted.value.size() >= QOS_TLM_CONDITION_VALUE_SIZE) {
        refuseThis(fmt::format("the value has {} bytes, a request carries at most {}", wanted.value.size(),
                               QOS_TLM_CONDITION_VALUE_SIZE - 1));
    }
    if (wanted.value.empty() || wanted.value.find('\0') != std::string::npos) {
        refuseThis("the value is empty or has a byte of zero, which ends it in a request");
    }
    if (const auto& values = condition->values;
        !values.empty() && std::find(values.begin(), values.end(), wanted.value) == values.end()) {
        refuseThis(fmt::format("{} takes {}", wanted.field, condition->takes));
    }
    if (condition->kind == ConditionKind::number) {
        uint32_t number = 0;
        if (!parseNumber(wanted.value, number)) {
            refuseThis(fmt::format("{} takes a whole number from 0 to {}", wanted.field,
                                   std::numeric_limits<uint32_t>::max()));
        }
    }
    if (condition->kind == ConditionKind::pattern && hasBackReference(wanted.value)) {
        refuseThis("a backslash before a digit refers back to a group, which no pattern does");
    }
    QosTlmCondition& added = request.conditions[request.conditionNum++];
    setText(added.fieldName, wanted.field);
    setText(added.value, wanted.value);
}

void addThreshold(QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry,
                  const Subscription::Threshold& wanted) {
    const auto refuseThis = [&wanted](const std::string& why) {
        refuse("threshold", " '{}{}{}': {}", wanted.field,
               std::ranges::find(kOperators, wanted.op, &Operator::code)->sign, wanted.value, why);
    };
    if (request.thresholdNum == QOS_TLM_THRESHOLD_MAX) {
        refuseThis(fmt::format("a request carries at most {} thresholds", QOS_TLM_THRESHOLD_MAX));
    }
    const std::vector<std::string> fields = entry != nullptr ? entry->thresholdNames() : std::vector<std::string>{};
    if (std::ranges::find(fields, wanted.field) == fields.end()) {
        refuseThis(fields.empty() ? fmt::format("{} compares no field", alias)
                                  : fmt::format("{} compares {}", alias, fmt::join(fields, ", ")));
    }
    if (request.thresholdNum == 1 && wanted.field != request.thresholds[0].fieldName) {
        refuseThis(
            fmt::format("the first threshold names the field for both, here {}", request.thresholds[0].fieldName));
    }
    QosTlmThreshold& added = request.thresholds[request.thresholdNum++];
    setText(added.fieldName, wanted.field);
    added.op = static_cast<uint8_t>(wanted.op);
    added.value = wanted.value;
}

}  // namespace

Subscription::Condition parseCondition(std::string_view text) {
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals + 1 == text.size()) {
        refuse("where", " '{}': write FIELD=VALUE", text);
    }
    return {std::string(text.substr(0, equals)), std::string(text.substr(equals + 1))};
}

Subscription::Threshold parseThreshold(std::string_view text) {
    const size_t signBegin = std::min(text.find_first_of("=<>!"), text.size());
    const size_t signEnd = std::min(text.find_first_not_of("=<>!", signBegin), text.size());
    const std::string_view sign = text.substr(signBegin, signEnd - signBegin);
    const auto* const op = std::ranges::find(kOperators, sign, &Operator::sign);
    if (op == std::end(kOperators)) {
        refuse("threshold", " '{}': write FIELD, one of = == > >= < <=, and VALUE", text);
    }
    uint32_t value = 0;
    if (!parseNumber(text.substr(signEnd), value)) {
        refuse("threshold", " '{}': the value must be a whole number from 0 to {}, since only 32 bits are compared",
               text, std::numeric_limits<uint32_t>::max());
    }
    return {std::string(text.substr(0, signBegin)), op->code, value};
}

QosTlmQueryParam requestOf(const Subscription& subscription) {
    const Catalogued* entry = findInCatalogue(subscription.alias);
    QosTlmQueryParam request = {};
    request.encodeType = subscription.encoding;
    for (const Subscription::Condition& condition : subscription.conditions) {
        addCondition(request, subscription.alias, entry, condition);
    }
    for (const Subscription::Threshold& threshold : subscription.thresholds) {
        addThreshold(request, subscription.alias, entry, threshold);
    }
    if (subscription.relation && request.thresholdNum < QOS_TLM_THRESHOLD_MAX) {
        refuse("relation", " says how two thresholds combine: give two");
    }
    request.thresholdRelation = static_cast<uint8_t>(subscription.relation.value_or(QOS_TLM_RELATION_AND));
    if (subscription.redundantPeriod && (subscription.period || request.thresholdNum > 0)) {
        refuse("suppress-redundant", " makes the plug-in ignore thresholds and period: leave them out");
    }
    if (entry != nullptr && entry->conditionsOnly && (subscription.period || subscription.redundantPeriod)) {
        refuse(subscription.period ? "period" : "suppress-redundant", " has no effect on {}: leave it out",
               subscription.alias);
    }
    request.periodCheck = subscription.period ? 1 : 0;
    request.selfDefPeriod = subscription.period.value_or(0);
    request.suppressRedundant = subscription.redundantPeriod ? 1 : 0;
    request.redundantPeriod = subscription.redundantPeriod.value_or(0);
    return request;
}

std::string patternOf(std::string_view name) {
    std::string pattern(name);
    // An escaped star would still be a run of digits. A point takes the operator, whoever must know compares the name.
    for (char& character : pattern) {
        if (std::string_view("[](){}^$\\+?|*").find(character) != std::string_view::npos) {
            character = '.';
        }
    }
    return pattern;
}

std::string patternHint(const Subscription& subscription) {
    const Catalogued* entry = findInCatalogue(subscription.alias);
    std::vector<std::string> wanted;
    for (const Subscription::Condition& condition : subscription.conditions) {
        if (entry != nullptr && std::ranges::any_of(entry->conditions, [&condition](const Condition& each) {
                return each.field == condition.field && each.kind == ConditionKind::pattern;
            })) {
            wanted.push_back(fmt::format("{} '{}'", condition.field, condition.value));
        }
    }
    return wanted.empty()
               ? ""
               : fmt::format("no record of {} passed; a pattern must match the whole name, * is a run of digits: {}",
                             subscription.alias, fmt::join(wanted, ", "));
}

}  // namespace host
