#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <memory>
#include <optional>

#include "devhost/cli/commands.h"
#include "devhost/cli/duration.h"
#include "devhost/cli/stop.h"
#include "devhost/feed/kernel_feed.h"
#include "devhost/feed/netlink.h"
#include "devhost/qosdb/store.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

struct FeedOptions {
    std::string database;
    std::chrono::milliseconds every = std::chrono::seconds(1);
    std::optional<uint64_t> count;
};

int runKernelFeed(const FeedOptions& options) {
    qosdb::Store store(options.database);
    feed::NetlinkSocket kernel;
    feed::KernelFeed feed(kernel, store, [](const std::string& line) { fmt::print(stderr, "qos-host: {}\n", line); });
    const uint64_t last = options.count.value_or(std::numeric_limits<uint64_t>::max());
    auto next = Clock::now();
    for (uint64_t number = 1; number <= last && !waitUntil(next); ++number) {
        feed.round(Clock::now());
        next = std::max(next + options.every, Clock::now());
    }
    return kDone;
}

}  // namespace

void addFeedCommand(CLI::App& app, Invocation& invocation) {
    CLI::App* command = app.add_subcommand("feed", "Keep a database fresh while others sample it");
    command->fallthrough(false)->allow_extras();  // to name the sources when one is given that does not exist
    CLI::App* kernel = command->add_subcommand("kernel", "What this machine's kernel counts, until Ctrl-C");
    kernel->allow_extras(false);
    const auto options = std::make_shared<FeedOptions>();
    kernel->add_option("--db", options->database, "Database to fill; made if it is not there")
        ->envname("NIVEX_QOS_DB")
        ->type_name("FILE")
        ->required();
    addDurationOption(*kernel, "--every", options->every, "Write a round in each such span");
    kernel->add_option("--count", options->count, "Rounds to write, then end")->check(CLI::PositiveNumber);
    kernel->callback([options, &invocation] { invocation.action = [options] { return runKernelFeed(*options); }; });
    command->callback([command] {
        if (const auto extras = command->remaining(); !extras.empty()) {
            throw UsageError(fmt::format("feed does not take '{}'; its sources: kernel", extras.front()));
        }
        if (command->get_subcommands().empty()) {
            throw UsageError("feed needs a source; its sources: kernel");
        }
    });
}

}  // namespace host
