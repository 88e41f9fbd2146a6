#include "devhost/gnmi/requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>

#include "devhost/gnmi/fault.h"
#include "devhost/gnmi/values.h"
#include "devhost/support/duration.h"
#include "devhost/support/shown.h"
#include "nivex_qos/sample.h"

namespace gnmi {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr milliseconds kShortestInterval = seconds(1);
constexpr milliseconds kLongestInterval = std::chrono::hours(24 * 366);

template <class... Values>
[[noreturn]] void malformed(fmt::format_string<Values...> why, Values&&... values) {
    throw Fault(grpc::StatusCode::INVALID_ARGUMENT, fmt::format(why, std::forward<Values>(values)...));
}

[[noreturn]] void tooMany(size_t most) {
    throw Fault(grpc::StatusCode::RESOURCE_EXHAUSTED,
                fmt::format("the request asks for more than {} lists at once, the most that are sampled for clients; a "
                            "path above the lists counts as all that it holds",
                            most));
}

template <class Models>
void checkModels(const Models& models) {
    if (!models.empty() && std::ranges::none_of(models, [](const ModelData& each) { return each.name() == kModule; })) {
        throw Fault(grpc::StatusCode::UNIMPLEMENTED,
                    fmt::format("use_models names none that is served: leave it out, or name {}", kModule));
    }
}

// Of a subscription, in its nanoseconds.
milliseconds intervalOf(const char* field, uint64_t given, const std::string& path) {
    if (given < uint64_t{nanoseconds(kShortestInterval).count()} ||
        given > uint64_t{nanoseconds(kLongestInterval).count()}) {
        malformed("path {}: {} {} ns is not served: 0, or {} to {} (1 s to 366 days)", path, field, given,
                  nanoseconds(kShortestInterval).count(), nanoseconds(kLongestInterval).count());
    }
    return std::chrono::duration_cast<milliseconds>(nanoseconds(given));
}

// What the plug-in takes of a key, as far as it takes any: whoever wants only this row looks at it once more.
std::optional<std::string> conditionValue(const host::Condition& condition, const Addressed::Key& key) {
    if (condition.kind == host::ConditionKind::choice) {
        // The classes in the order of their queues; others have no name.
        const auto queue = std::stoul(key.value);
        return queue < condition.values.size() ? std::optional(condition.values[queue]) : std::nullopt;
    }
    // A backslash may be one, or stand for a byte that is no UTF-8.
    if (key.value.empty() || key.value.size() >= QOS_TLM_CONDITION_VALUE_SIZE ||
        key.value.find_first_of(std::string_view("\\\0", 2)) != std::string::npos) {
        return std::nullopt;
    }
    return condition.kind == host::ConditionKind::pattern ? host::patternOf(key.value) : key.value;
}

std::vector<host::Subscription::Condition> conditionsOf(const Addressed& what) {
    std::vector<host::Subscription::Condition> conditions;
    for (const Addressed::Key& key : what.keys) {
        const std::string& name = what.list->field(key.field).json_name();
        const auto condition = std::ranges::find(what.list->conditions, name, &host::Condition::field);
        if (condition != what.list->conditions.end()) {
            if (auto value = conditionValue(*condition, key)) {
                conditions.push_back({name, std::move(*value)});
            }
        }
    }
    return conditions;
}

// A rate follows from its counter: the plug-in does not send a row because of it.
bool isRate(const google::protobuf::FieldDescriptor& field) {
    return field.json_name().ends_with("-rate");
}

/*
 * Has only changed rows sent. The plug-in leaves the others out as far as it compares what is wanted, and sends an
 * unchanged row again in the first pass that is more than redundantPeriod (whole seconds) after it last did so, which
 * need not be when the row was last sent here. So it is asked for a period that brings each row twice in a heartbeat.
 */
void wantChanges(Wanted& wanted) {
    const host::Catalogued& list = *wanted.what.list;
    wanted.changesOnly = true;
    if (wanted.what.leaf) {
        wanted.compared = {*wanted.what.leaf};
    } else {
        for (int index = 0; index < list.fieldCount(); ++index) {
            if (!list.isKey(index) && !isRate(list.field(index))) {
                wanted.compared.push_back(index);
            }
        }
    }
    const milliseconds every = wanted.sampling.every;
    wanted.seenAgain = every + every / 4;
    const bool pluginCompares = !list.conditionsOnly && (!wanted.what.leaf || !isRate(list.field(*wanted.what.leaf)));
    if (every == milliseconds(0) || !pluginCompares) {
        return;
    }
    if (wanted.heartbeat == milliseconds(0)) {
        wanted.sampling.redundantPeriod = std::numeric_limits<uint32_t>::max();
        return;
    }
    const auto period = std::max(std::chrono::floor<seconds>(wanted.heartbeat / 2 - every - seconds(1)), seconds(0));
    wanted.sampling.redundantPeriod = static_cast<uint32_t>(period.count());
    if (period > seconds(0)) {
        wanted.seenAgain = period + seconds(1) + every;
    }
}

void scheduleStream(Wanted& wanted, const Subscription& subscription) {
    const bool onChange =
        subscription.mode() == ON_CHANGE || (subscription.mode() == TARGET_DEFINED && wanted.what.list->conditionsOnly);
    wanted.sampling.every = kShortestInterval;
    if (!onChange && subscription.sample_interval() != 0) {
        wanted.sampling.every = intervalOf("sample_interval", subscription.sample_interval(), wanted.path);
    }
    if (subscription.heartbeat_interval() != 0) {
        wanted.heartbeat = intervalOf("heartbeat_interval", subscription.heartbeat_interval(), wanted.path);
        if (wanted.heartbeat < wanted.sampling.every) {
            malformed(
                "path {}: heartbeat_interval {} is shorter than sample_interval {}: a value is sent once in each "
                "sample_interval at most",
                wanted.path, host::durationText(wanted.heartbeat), host::durationText(wanted.sampling.every));
        }
    }
    if (onChange || subscription.suppress_redundant()) {
        wantChanges(wanted);
    }
}

void addWanted(std::vector<Wanted>& all, const Path& prefix, const Path& path, size_t most) {
    for (Addressed& what : resolve(prefix, path)) {
        if (all.size() == most) {
            tooMany(most);
        }
        Wanted& wanted = all.emplace_back();
        wanted.path = textOf(prefix, path);
        wanted.sampling.alias = what.list->alias;
        wanted.sampling.conditions = conditionsOf(what);
        wanted.what = std::move(what);
    }
}

}  // namespace

std::vector<Wanted> wantedBy(const SubscriptionList& list, size_t most) {
    if (!SubscriptionList::Mode_IsValid(list.mode())) {
        throw Fault(
            grpc::StatusCode::UNIMPLEMENTED,
            fmt::format("mode {} is not served: STREAM (0), ONCE (1) and POLL (2) are", static_cast<int>(list.mode())));
    }
    checkEncoding(list.encoding());
    checkModels(list.use_models());
    if (list.subscription().empty()) {
        malformed("there is no subscription: give a path, /qos for everything");
    }
    if (static_cast<size_t>(list.subscription_size()) > most) {
        tooMany(most);
    }
    std::vector<Wanted> all;
    for (const Subscription& subscription : list.subscription()) {
        const size_t first = all.size();
        addWanted(all, list.prefix(), subscription.path(), most);
        if (!SubscriptionMode_IsValid(subscription.mode())) {
            throw Fault(grpc::StatusCode::UNIMPLEMENTED,
                        fmt::format("path {}: mode {} of a subscription is not served: TARGET_DEFINED (0), ON_CHANGE "
                                    "(1) and SAMPLE (2) are",
                                    all[first].path, static_cast<int>(subscription.mode())));
        }
        for (size_t index = first; index < all.size(); ++index) {
            if (list.mode() == SubscriptionList::STREAM) {
                scheduleStream(all[index], subscription);
            } else if (list.mode() == SubscriptionList::POLL && list.updates_only()) {
                wantChanges(all[index]);
            }
        }
    }
    return all;
}

std::vector<Wanted> wantedBy(const GetRequest& request, size_t most) {
    if (!GetRequest::DataType_IsValid(request.type())) {
        malformed("type {} is none: ALL (0), CONFIG (1), STATE (2) and OPERATIONAL (3) are",
                  static_cast<int>(request.type()));
    }
    checkEncoding(request.encoding());
    checkModels(request.use_models());
    if (static_cast<size_t>(request.path_size()) > most) {
        tooMany(most);
    }
    std::vector<Wanted> all;
    for (const Path& path : request.path()) {
        addWanted(all, request.prefix(), path, most);
    }
    if (request.path().empty()) {
        addWanted(all, request.prefix(), {}, most);
    }
    return all;
}

Path prefixOfAnswers(const Path& prefix) {
    constexpr size_t kLongestTarget = 255;
    if (prefix.target().size() > kLongestTarget) {
        malformed("the target in the prefix has {} bytes, the longest have {}", prefix.target().size(), kLongestTarget);
    }
    Path answers;
    answers.set_target(prefix.target());
    answers.set_origin(prefix.origin());
    return answers;
}

}  // namespace gnmi
