/*
 * A subscription: what somebody wants of one path, and how often. The one vocabulary for it, whether it was read from
 * options, from YAML or from gNMI.
 */
#ifndef DEVHOST_SAMPLING_SUBSCRIPTION_H
#define DEVHOST_SAMPLING_SUBSCRIPTION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "devhost/sampling/catalogue.h"
#include "devhost/support/exit.h"
#include "nivex_qos/sample.h"

namespace host {

struct Subscription {
    /* Restricts a field that the path honours. */
    struct Condition {
        std::string field;
        std::string value;
        friend bool operator==(const Condition&, const Condition&) = default;
    };

    /* Compares a field that the path compares. */
    struct Threshold {
        std::string field;
        QosTlmThresholdOp op = QOS_TLM_OP_EQUAL;
        uint32_t value = 0;
        friend bool operator==(const Threshold&, const Threshold&) = default;
    };

    std::string alias;  // of the path
    QosTlmEncodeType encoding = QOS_TLM_ENCODE_GPB;
    std::vector<Condition> conditions;                // all must hold
    std::vector<Threshold> thresholds;                // at most two, both on one field
    std::optional<QosTlmThresholdRelation> relation;  // of two thresholds; both must pass when it is not set
    std::optional<uint32_t> period;                   // seconds in which a record passes at most once
    std::optional<uint32_t> redundantPeriod;          // seconds after which an unchanged record passes again
    std::chrono::milliseconds every{0};               // 0: once

    friend bool operator==(const Subscription&, const Subscription&) = default;
};

/*
 * A setting that cannot be followed; what() begins with its name, which is the same as an option and as a key, and says
 * what would be right.
 */
class SubscriptionError : public UsageError {
  public:
    SubscriptionError(std::string setting, const std::string& why)
        : UsageError(setting + why), setting_(std::move(setting)) {}

    /* "where", "threshold", "relation", "period", "suppress-redundant" */
    const std::string& setting() const { return setting_; }

  private:
    std::string setting_;
};

/* "FIELD=VALUE"; throws SubscriptionError. */
Subscription::Condition parseCondition(std::string_view text);

/* "FIELD>=VALUE", or another operator; throws SubscriptionError. */
Subscription::Threshold parseThreshold(std::string_view text);

/*
 * The sampling request. Throws SubscriptionError for what the path would not follow, and names what it would. A path
 * that is not in the catalogue takes neither conditions nor thresholds.
 */
QosTlmQueryParam requestOf(const Subscription& subscription);

/*
 * A pattern for the interfaces of this name. It may match others, whose letters differ in case or that have something
 * else where the name has an operator of the pattern language: whoever wants only this one compares the names.
 */
std::string patternOf(std::string_view name);

/* What to say when no record passed: the patterns that the request asks for. Empty when it has none. */
std::string patternHint(const Subscription& subscription);

}  // namespace host

#endif
