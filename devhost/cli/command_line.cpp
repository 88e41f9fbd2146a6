#include "devhost/cli/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <concepts>
#include <functional>
#include <limits>

#include "devhost/cli/commands.h"
#include "devhost/cli/output.h"
#include "devhost/feed/rounds.h"
#include "devhost/support/duration.h"
#include "devhost/support/exit.h"
#include "devhost/support/shown.h"

namespace host {

namespace {

constexpr auto kMost32 = std::numeric_limits<uint32_t>::max();
constexpr auto kMost64 = std::numeric_limits<uint64_t>::max();

/* What the arguments come to; the program's options live in it while it is parsed and run. */
struct CommandLine {
    std::string pluginFile;
    PathsOptions paths;
    SampleOptions sample;
    DecodeOptions decode;
    feed::FeedOptions kernelFeed;
    feed::SimFeedOptions simFeed;
    DemoOptions demo;
    std::function<int()> action;  // of the chosen command
};

// An option that takes a span; value keeps what it holds, shown as the default unless it is 0, when it is not given.
void addDurationOption(CLI::App& command, const std::string& name, std::chrono::milliseconds& value,
                       const std::string& description) {
    CLI::Option* option = command.add_option_function<std::string>(
        name,
        [name, &value](const std::string& text) {
            try {
                value = parseDuration(text);
            } catch (const UsageError& error) {
                throw UsageError(fmt::format("{}: {}", name, error.what()));
            }
        },
        description);
    option->type_name("SPAN");
    if (value.count() != 0) {
        option->default_str(durationText(value));
    }
}

// An option that takes a whole number in decimal digits and nothing else.
template <class Value, std::unsigned_integral Number = uint32_t>
CLI::Option* addNumberOption(CLI::App& command, const std::string& name, Value& value, Number least, Number most,
                             const std::string& description) {
    return command
        .add_option_function<std::string>(
            name,
            [=, &value](const std::string& text) {
                Number number = 0;
                const char* end = text.data() + text.size();
                const auto [rest, error] = std::from_chars(text.data(), end, number);
                if (error != std::errc{} || rest != end || number < least || number > most) {
                    throw UsageError(fmt::format("{}: '{}' is no whole number from {} to {}", name, text, least, most));
                }
                value = number;
            },
            description)
        ->type_name("NUMBER");
}

void addOutputOptions(CLI::App& command, std::optional<std::string>& output, std::vector<std::string>& columns) {
    command.add_option("--output", output, "Form of the output; json of GPB is RFC 7951 JSON")
        ->check(CLI::IsMember(kOutputs))
        ->type_name("TEXT")
        ->default_str("table");
    command.add_option("--columns", columns, "Columns of the table, separated by commas, in this order")
        ->delimiter(',')
        ->type_name("FIELDS")
        ->allow_extra_args(false);
}

CLI::Option* addDatabaseOption(CLI::App& command, std::string& value, const char* description) {
    return command.add_option("--db", value, description)->type_name("FILE");
}

void addPathsCommand(CLI::App& app, CommandLine& line) {
    CLI::App* command = app.add_subcommand("paths", "List the sampling paths that the plug-in registers");
    command->add_flag("--json", line.paths.json, "Print JSON, for programs");
    command->callback([&] { line.action = [&] { return runPaths(line.paths, line.pluginFile); }; });
}

void addSampleCommand(CLI::App& app, CommandLine& line) {
    CLI::App* command = app.add_subcommand("sample", "Sample a path and show what the plug-in sends");
    SampleOptions& options = line.sample;
    command->add_option("PATH", options.path, "Alias or xpath of the path, see qos-host paths")->required();
    addDatabaseOption(*command, options.database, "Database of the statistics")->envname("NIVEX_QOS_DB")->required();
    command->add_option("--encoding", options.encoding, "Encoding that the plug-in is asked for")
        ->check(CLI::IsMember({"gpb", "json"}))
        ->capture_default_str();
    command->add_option("--where", options.conditions, "Only records whose field has the value; repeatable")
        ->type_name("FIELD=VALUE")
        ->allow_extra_args(false);
    command
        ->add_option("--threshold", options.thresholds,
                     "Only records whose field compares so (= == > >= < <=); at most two, both on the same field")
        ->type_name("FIELD>=VALUE")
        ->allow_extra_args(false);
    command->add_option("--relation", options.relation, "With two thresholds: both must pass, or the second decides")
        ->check(CLI::IsMember({"and", "second"}))
        ->default_str("and");
    addDurationOption(*command, "--every", options.every, "Begin a pass in each such span, until --count or Ctrl-C");
    addNumberOption(*command, "--count", options.count, uint64_t{1}, kMost64, "Passes to make (1 without --every)");
    addNumberOption(*command, "--period", options.period, 0u, kMost32, "Send a record at most once in so many seconds")
        ->type_name("SECONDS");
    addNumberOption(*command, "--suppress-redundant", options.redundantPeriod, 0u, kMost32,
                    "Send a record when it changed, or after so many seconds")
        ->type_name("SECONDS");
    addNumberOption(*command, "--subscription", options.subscription, 0u, kMost32, "Id that the samples carry")
        ->default_str(std::to_string(options.subscription));
    addOutputOptions(*command, options.output, options.columns);
    command
        ->add_option("--capture", options.capture,
                     "Keep the samples in this new file or FIFO, for qos-host decode; - is standard output")
        ->type_name("FILE");
    command->callback([&] { line.action = [&] { return runSample(line.sample, line.pluginFile); }; });
}

void addDecodeCommand(CLI::App& app, CommandLine& line) {
    CLI::App* command = app.add_subcommand("decode", "Show the samples of a capture");
    command->add_option("FILE", line.decode.file, "What qos-host sample --capture wrote; - is standard input")
        ->required();
    addOutputOptions(*command, line.decode.output, line.decode.columns);
    command->callback([&] { line.action = [&] { return runDecode(line.decode); }; });
}

void addFeedOptions(CLI::App& source, feed::FeedOptions& options) {
    addDatabaseOption(source, options.database, "Database to fill; made if it is not there")
        ->envname("NIVEX_QOS_DB")
        ->required();
    addDurationOption(source, "--every", options.every, "Write a round in each such span");
    addNumberOption(source, "--count", options.count, uint64_t{1}, kMost64, "Rounds to write, then end");
}

void addFeedCommand(CLI::App& app, CommandLine& line) {
    CLI::App* command = app.add_subcommand("feed", "Keep a database fresh while others sample it");
    command->fallthrough(false)->allow_extras();  // to name the sources when one is given that does not exist

    CLI::App* kernel = command->add_subcommand("kernel", "What this machine's kernel counts, until Ctrl-C");
    kernel->allow_extras(false);
    addFeedOptions(*kernel, line.kernelFeed);
    kernel->callback([&] { line.action = [&] { return feed::runKernelFeed(line.kernelFeed); }; });

    CLI::App* sim = command->add_subcommand("sim", "A simulated device with all tables, until Ctrl-C");
    sim->allow_extras(false);
    addFeedOptions(*sim, line.simFeed);
    feed::SimOptions& device = line.simFeed.device;
    const auto addNumber = [sim](const char* name, uint32_t& value, uint32_t least, uint32_t most, const char* what) {
        addNumberOption(*sim, name, value, least, most, fmt::format("{}, {} to {}", what, least, most))
            ->default_str(std::to_string(value));
    };
    addNumber("--slots", device.slots, 1, feed::SimOptions::kMaxSlots, "Slots, with a chip each");
    addNumber("--ports", device.ports, 1, feed::SimOptions::kMaxPorts, "Ports of each slot");
    addNumber("--load", device.load, 0, feed::SimOptions::kMaxLoad, "Arrivals in percent of the ports' rate");
    addNumberOption(*sim, "--seed", device.seed, uint64_t{0}, kMost64, "Another number, another traffic")
        ->default_str(std::to_string(device.seed));
    addNumber("--speed", line.simFeed.speed, 1, feed::SimFeedOptions::kMaxSpeed, "How many times as fast time passes");
    sim->callback([&] { line.action = [&] { return feed::runSimFeed(line.simFeed); }; });

    command->callback([command] {
        if (const auto extras = command->remaining(); !extras.empty()) {
            throw UsageError(fmt::format("feed does not take '{}'; its sources: kernel, sim", extras.front()));
        }
        if (command->get_subcommands().empty()) {
            throw UsageError("feed needs a source; its sources: kernel, sim");
        }
    });
}

void addDemoCommand(CLI::App& app, CommandLine& line) {
    CLI::App* command =
        app.add_subcommand("demo", "Show the plug-in sampling a kernel's queues that fill and overflow");
    addNumberOption(*command, "--seconds", line.demo.seconds, 1u, 3600u, "How long to send and sample, 1 to 3600")
        ->default_str(std::to_string(line.demo.seconds));
    addDatabaseOption(*command, line.demo.database, "Keep the database in this file, for looking at it");
    command->callback([&] { line.action = [&] { return runDemo(line.demo, line.pluginFile); }; });
}

}  // namespace

int runCommandLine(int argc, char** argv) {
    CLI::App app("Runs the QoS telemetry plug-in off the device: samples its paths, feeds its database.", "qos-host");
    CommandLine line;
    app.set_version_flag("--version", "qos-host " QOS_HOST_VERSION);
    app.add_option("--plugin", line.pluginFile, "Plug-in to load instead of the one beside this program")
        ->envname("NIVEX_QOS_PLUGIN")
        ->type_name("FILE");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return fmt::format("qos-host: {}\nRun with --help for more information.\n", shown(error.what()));
    });
    app.require_subcommand(1);
    app.fallthrough();
    addPathsCommand(app, line);
    addSampleCommand(app, line);
    addDecodeCommand(app, line);
    addFeedCommand(app, line);
    addDemoCommand(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (const auto unknown = app.remaining(); app.get_subcommands().empty() && !unknown.empty()) {
            throw UsageError(fmt::format(
                "there is no command '{}'; the commands are paths, sample, decode, feed and demo", unknown.front()));
        }
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    return line.action();
}

}  // namespace host
