#include <fmt/format.h>

#include <variant>

#include "devhost/agent/configuration.h"
#include "devhost/support/duration.h"

namespace agent {

namespace {

std::string textOf(const Configuration::Feed& feed) {
    switch (feed.source) {
        case Configuration::Feed::Source::none:
            return "none, the tables come from elsewhere";
        case Configuration::Feed::Source::kernel:
            return fmt::format("the kernel's counters, every {}", host::durationText(feed.every));
        case Configuration::Feed::Source::sim:
            return fmt::format("a simulated device of {} slots with {} ports, load {} %, seed {}, every {}",
                               feed.device.slots, feed.device.ports, feed.device.load, feed.device.seed,
                               host::durationText(feed.every));
    }
    return {};
}

std::string textOf(const host::Subscription& subscription) {
    std::string text = fmt::format("{} every {}", subscription.alias, host::durationText(subscription.every));
    for (const auto& condition : subscription.conditions) {
        text += fmt::format(", where {}={}", condition.field, condition.value);
    }
    if (!subscription.thresholds.empty()) {
        text += fmt::format(", {} threshold{}", subscription.thresholds.size(),
                            subscription.thresholds.size() == 1 ? "" : "s");
    }
    if (subscription.period) {
        text += fmt::format(", each record at most once in {} s", *subscription.period);
    }
    if (subscription.redundantPeriod) {
        text += fmt::format(", unchanged records every {} s", *subscription.redundantPeriod);
    }
    return text;
}

std::string textOf(const Configuration::Prometheus& output) {
    return fmt::format("Prometheus, http://{}/metrics", output.listen);
}

std::string textOf(const Configuration::CaptureFile& output) {
    return fmt::format("capture in '{}', up to {} KiB waiting, then the {} batches are dropped", output.file,
                       output.buffer >> 10, output.dropOldest ? "oldest" : "newest");
}

std::string textOf(const Configuration::Gnmi& gnmi) {
    return fmt::format("{}, {}, at most {} subscriptions", gnmi.listen,
                       gnmi.insecure           ? "without TLS"
                       : gnmi.clientCa.empty() ? "TLS"
                                               : "TLS with client certificates",
                       gnmi.maxSubscriptions);
}

}  // namespace

std::vector<std::string> describe(const Configuration& configuration) {
    std::vector<std::string> lines;
    const auto line = [&lines](const auto& name, const std::string& what) {
        lines.push_back(fmt::format("{}: {}", name, what));
    };
    line("device", configuration.device);
    line("feed", textOf(configuration.feed));
    line("database", configuration.database.empty() ? "in memory, removed at exit" : configuration.database);
    for (const auto& [name, subscription] : configuration.subscriptions) {
        line("subscription " + name, textOf(subscription));
    }
    for (const auto& [name, output] : configuration.outputs) {
        line("output " + name, std::visit([](const auto& settings) { return textOf(settings); }, output));
    }
    line("gnmi", configuration.gnmi ? textOf(*configuration.gnmi) : "not served");
    return lines;
}

}  // namespace agent
