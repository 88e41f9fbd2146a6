#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <optional>

#include "devhost/cli/commands.h"
#include "devhost/cli/duration.h"
#include "devhost/cli/stop.h"
#include "devhost/cli/trouble.h"
#include "devhost/feed/kernel_feed.h"
#include "devhost/feed/netlink.h"
#include "devhost/feed/sim_feed.h"
#include "devhost/feed/simulated_device.h"
#include "devhost/qosdb/store.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

struct FeedOptions {
    std::string database;
    std::chrono::milliseconds every = std::chrono::seconds(1);
    std::optional<uint64_t> count;
};

struct SimFeedOptions : FeedOptions {
    static constexpr uint32_t kMaxSpeed = 1000;

    feed::SimOptions device;
    uint32_t speed = 1;
};

// A round in each span; a round that takes longer puts the next ones off, one that cannot be written is left out.
int runRounds(const FeedOptions& options, qosdb::Store& store, const std::function<void()>& round) {
    const uint64_t last = options.count.value_or(std::numeric_limits<uint64_t>::max());
    auto next = Clock::now();
    Trouble trouble("feeding '" + options.database + "'");
    bool written = true;
    for (uint64_t number = 1; number <= last && !waitUntil(next); ++number) {
        std::vector<std::string> messages;
        try {
            if (!written) {
                store.reopen();
            }
            round();
        } catch (const qosdb::StoreError& error) {
            messages.emplace_back(error.what());
        }
        written = messages.empty();
        if (!written || !stopRequested()) {  // a stop leaves a round unwritten without a fault
            trouble.tell(messages);
        }
        next = std::max(next + options.every, Clock::now());
    }
    return trouble.ever() ? kFailed : kDone;
}

int runKernelFeed(const FeedOptions& options) {
    qosdb::Store store(options.database);
    feed::NetlinkSocket kernel;
    feed::KernelFeed feed(kernel, store, [](const std::string& line) { fmt::print(stderr, "qos-host: {}\n", line); });
    return runRounds(options, store, [&] { feed.round(Clock::now(), std::chrono::system_clock::now()); });
}

int runSimFeed(const SimFeedOptions& options) {
    using std::chrono::milliseconds;
    qosdb::Store store(options.database);
    feed::SimOptions deviceOptions = options.device;
    deviceOptions.startTime = std::chrono::floor<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    feed::SimulatedDevice device(deviceOptions);
    feed::SimFeed feed(device, store);
    return runRounds(options, store, [&] {
        constexpr milliseconds kStep(10);  // after which a large device looks for the stop
        for (milliseconds left = options.every * options.speed; left.count() > 0; left -= kStep) {
            if (stopRequested()) {
                return;
            }
            device.advance(std::min(left, kStep));
        }
        feed.round();
    });
}

void addFeedOptions(CLI::App& source, FeedOptions& options) {
    source.add_option("--db", options.database, "Database to fill; made if it is not there")
        ->envname("NIVEX_QOS_DB")
        ->type_name("FILE")
        ->required();
    addDurationOption(source, "--every", options.every, "Write a round in each such span");
    source.add_option("--count", options.count, "Rounds to write, then end")->check(CLI::PositiveNumber);
}

}  // namespace

void addFeedCommand(CLI::App& app, Invocation& invocation) {
    CLI::App* command = app.add_subcommand("feed", "Keep a database fresh while others sample it");
    command->fallthrough(false)->allow_extras();  // to name the sources when one is given that does not exist

    CLI::App* kernel = command->add_subcommand("kernel", "What this machine's kernel counts, until Ctrl-C");
    kernel->allow_extras(false);
    const auto kernelOptions = std::make_shared<FeedOptions>();
    addFeedOptions(*kernel, *kernelOptions);
    kernel->callback([kernelOptions, &invocation] {
        invocation.action = [kernelOptions] { return runKernelFeed(*kernelOptions); };
    });

    CLI::App* sim = command->add_subcommand("sim", "A simulated device with all nine tables, until Ctrl-C");
    sim->allow_extras(false);
    const auto simOptions = std::make_shared<SimFeedOptions>();
    addFeedOptions(*sim, *simOptions);
    feed::SimOptions& device = simOptions->device;
    const auto addNumber = [sim](const char* name, uint32_t& value, uint32_t least, uint32_t most, const char* what) {
        sim->add_option(name, value, what)->check(CLI::Range(least, most))->capture_default_str();
    };
    addNumber("--slots", device.slots, 1, feed::SimOptions::kMaxSlots, "Slots, with a chip each");
    addNumber("--ports", device.ports, 1, feed::SimOptions::kMaxPorts, "Ports of each slot");
    addNumber("--load", device.load, 0, feed::SimOptions::kMaxLoad, "Arrivals in percent of the ports' rate");
    sim->add_option("--seed", device.seed, "Another number, another traffic")->capture_default_str();
    addNumber("--speed", simOptions->speed, 1, SimFeedOptions::kMaxSpeed, "How many times as fast time passes");
    sim->callback([simOptions, &invocation] { invocation.action = [simOptions] { return runSimFeed(*simOptions); }; });

    command->callback([command] {
        if (const auto extras = command->remaining(); !extras.empty()) {
            throw UsageError(fmt::format("feed does not take '{}'; its sources: kernel, sim", extras.front()));
        }
        if (command->get_subcommands().empty()) {
            throw UsageError("feed needs a source; its sources: kernel, sim");
        }
    });
}

}  // namespace host
