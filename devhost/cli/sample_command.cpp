#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <random>
#include <utility>

#include "devhost/cli/capture.h"
#include "devhost/cli/catalogue.h"
#include "devhost/cli/commands.h"
#include "devhost/cli/exit.h"
#include "devhost/cli/feed_watch.h"
#include "devhost/cli/host.h"
#include "devhost/cli/output.h"
#include "devhost/cli/request.h"
#include "devhost/cli/stop.h"
#include "devhost/cli/trouble.h"
#include "devhost/qosdb/qosdb.h"

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

QosTlmQueryParam buildRequest(const SampleOptions& options, const Path& path) {
    const Catalogued* entry = findInCatalogue(path.alias);
    QosTlmQueryParam request = {};
    request.encodeType = options.encodeType();
    for (const std::string& text : options.conditions) {
        addCondition(request, path.alias, entry, text);
    }
    for (const std::string& text : options.thresholds) {
        addThreshold(request, path.alias, entry, text);
    }
    if (!options.relation.empty() && request.thresholdNum < 2) {
        throw UsageError("--relation says how two thresholds combine: give --threshold twice");
    }
    request.thresholdRelation = options.relation == "second" ? QOS_TLM_RELATION_SECOND : QOS_TLM_RELATION_AND;
    if (options.redundantPeriod && (options.period || request.thresholdNum > 0)) {
        throw UsageError("--suppress-redundant makes the plug-in ignore --threshold and --period: leave them out");
    }
    if (entry != nullptr && entry->conditionsOnly && (options.period || options.redundantPeriod)) {
        throw UsageError(fmt::format("{} has no --period and no --suppress-redundant", path.alias));
    }
    request.periodCheck = options.period ? 1 : 0;
    request.selfDefPeriod = options.period.value_or(0);
    request.suppressRedundant = options.redundantPeriod ? 1 : 0;
    request.redundantPeriod = options.redundantPeriod.value_or(0);
    return request;
}

}  // namespace

int runSample(const SampleOptions& options, const std::string& pluginFile) {
    QosDb_SetFile(options.database.c_str());
    Host plugin(pluginFile);
    const Path& path = plugin.path(options.path);
    const QosTlmQueryParam request = buildRequest(options, path);
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
    std::string hint = patternHint(request, path.alias, findInCatalogue(path.alias));
    for (uint64_t number = 1; number <= last && !waitUntil(next); ++number) {
        record.pass = number;
        const uint64_t lateness = microsecondsSince(next);
        const uint64_t beginTime = millisecondsSince1970();
        const auto begin = steady_clock::now();
        Pass pass = plugin.runPass(path, request, options.subscription, [&](const Batch& batch) {
            keep(CapturedBatch{options.encodeType(), batch});
        });
        const uint64_t duration = microsecondsSince(begin);
        for (const std::string& message : pass.messages) {
            keep(LogLine{millisecondsSince1970(), message});
        }
        keep(PassEnd{.result = static_cast<uint8_t>(pass.result),
                     .records = pass.records(),
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
