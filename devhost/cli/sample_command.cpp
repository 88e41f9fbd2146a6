#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "devhost/cli/commands.h"
#include "devhost/cli/output.h"
#include "devhost/qosdb/qosdb.h"
#include "devhost/sampling/capture.h"
#include "devhost/sampling/catalogue.h"
#include "devhost/sampling/feed_watch.h"
#include "devhost/sampling/host.h"
#include "devhost/sampling/subscription.h"
#include "devhost/support/exit.h"
#include "devhost/support/stop.h"
#include "devhost/support/trouble.h"

namespace host {

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::steady_clock;

uint64_t randomNumber() {
    std::random_device device;
    return uint64_t{device()} << 32 | device();
}

uint64_t millisecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(duration_cast<std::chrono::milliseconds>(now).count());
}

uint64_t microsecondsSince(steady_clock::time_point time) {
    return static_cast<uint64_t>(std::max(duration_cast<microseconds>(steady_clock::now() - time), {}).count());
}

// The options' texts, whose faults name the option.
Subscription subscriptionOf(const SampleOptions& options, const std::string& alias) {
    Subscription subscription = {.alias = alias,
                                 .encoding = options.encodeType(),
                                 .conditions = {},
                                 .thresholds = {},
                                 .relation = std::nullopt,
                                 .period = options.period,
                                 .redundantPeriod = options.redundantPeriod,
                                 .every = options.every};
    std::ranges::transform(options.conditions, std::back_inserter(subscription.conditions), parseCondition);
    std::ranges::transform(options.thresholds, std::back_inserter(subscription.thresholds), parseThreshold);
    if (!options.relation.empty()) {
        subscription.relation = options.relation == "second" ? QOS_TLM_RELATION_SECOND : QOS_TLM_RELATION_AND;
    }
    return subscription;
}

}  // namespace

int runSample(const SampleOptions& options, const std::string& pluginFile) {
    QosDb_SetFile(options.database.c_str());
    Host plugin(pluginFile);
    const Path& path = plugin.path(options.path);
    Subscription subscription;
    QosTlmQueryParam request = {};
    try {
        subscription = subscriptionOf(options, path.alias);
        request = requestOf(subscription);
    } catch (const SubscriptionError& error) {
        throw UsageError(std::string("--") + error.what());
    }
    const bool captureIsOutput = !options.capture.empty() && isStandardOutput(options.capture);
    const Form form = {options.output.value_or(captureIsOutput ? "none" : "table"), options.columns};
    if (captureIsOutput && form.output != "none") {
        throw UsageError(
            fmt::format("--capture takes standard output, which leaves no place for --output {}", form.output));
    }
    if (const Catalogued* entry = findInCatalogue(path.alias)) {
        requireColumns(form, "no field of " + path.alias, entry->fieldNames());
    }
    std::optional<CaptureWriter> capture;
    if (!options.capture.empty()) {
        capture.emplace(options.capture);
    }
    CaptureRecord record = {
        .run = randomNumber(), .subscription = options.subscription, .alias = path.alias, .content = {}};
    const auto keep = [&](auto content) {
        if (capture) {
            record.content = std::move(content);
            capture->add(record);
        }
    };
    const uint64_t last = options.count.value_or(options.every.count() == 0 ? 1 : std::numeric_limits<uint64_t>::max());
    auto next = steady_clock::now();
    Trouble trouble(fmt::format("sampling {}", path.alias));
    FeedWatch feedWatch(options.database, path.alias);
    std::string hint = patternHint(subscription);
    for (uint64_t number = 1; number <= last && !waitUntil(next); ++number) {
        record.pass = number;
        const uint64_t lateness = microsecondsSince(next);
        const uint64_t beginTime = millisecondsSince1970();
        const auto begin = steady_clock::now();
        std::vector<Batch> batches;
        Pass pass = plugin.runPass(path, request, options.subscription, [&](Batch batch) {
            keep(CapturedBatch{options.encodeType(), batch});
            batches.push_back(std::move(batch));
        });
        pass.batches = std::move(batches);
        const uint64_t duration = microsecondsSince(begin);
        for (const std::string& message : pass.messages) {
            keep(LogLine{millisecondsSince1970(), message});
        }
        keep(PassEnd{.result = static_cast<uint8_t>(pass.result),
                     .records = pass.records,
                     .rows = pass.rows,
                     .beginTime = beginTime,
                     .duration = duration,
                     .lateness = lateness});
        feedWatch.look();
        printBatches(pass.batches, path.alias, options.encodeType(), form,
                     [&](const Batch& batch, const std::string& what) {
                         pass.messages.push_back(fmt::format("batch {}: {}", batch.hostArg2, what));
                     });
        if (form.output != "json" && !captureIsOutput) {
            printSummary(number, pass);
        }
        flushOutput();
        if (!pass.batches.empty()) {
            hint.clear();
        } else if (pass.result == QOS_TLM_RESULT_DONE && pass.messages.empty() && !hint.empty()) {
            report(std::exchange(hint, {}));
        }
        const bool failed = pass.result == QOS_TLM_RESULT_FAILED;
        if (failed) {
            pass.messages.push_back(fmt::format("sampling {} failed", path.alias));
        }
        trouble.tell(pass.messages);  // a message is a failure as well: a batch refused, a clock not read
        if (failed && options.every.count() == 0) {
            break;  // with a span, the cause may be gone by the next pass
        }
        next = std::max(next + options.every, steady_clock::now());
    }
    return trouble.ever() ? kFailed : kDone;
}

}  // namespace host
