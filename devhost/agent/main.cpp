#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <string_view>

#include "devhost/agent/agent.h"
#include "devhost/agent/configuration.h"
#include "devhost/agent/order.h"
#include "devhost/agent/worker.h"
#include "devhost/support/exit.h"
#include "devhost/support/loop.h"
#include "devhost/support/shown.h"
#include "devhost/support/standard_files.h"
#include "devhost/support/trouble.h"

namespace agent {

namespace {

Configuration configurationOf(const std::string& file) {
    return file.empty() ? defaultConfiguration() : readConfiguration(file);
}

void tell(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        host::report(line);
    }
}

/* Tells systemd that the loop turns, as often as it wants to know. */
class Watchdog {
  public:
    explicit Watchdog(host::Loop& loop)
        : timer_(loop.timer([this] {
              sd_notify(0, "WATCHDOG=1");
              timer_.start(every_);
          })) {
        uint64_t microseconds = 0;
        if (sd_watchdog_enabled(0, &microseconds) > 0) {
            every_ = std::chrono::milliseconds(microseconds / 2000);
            timer_.start(every_);
        }
    }

  private:
    std::chrono::milliseconds every_{};
    host::Loop::Watch timer_;
};

/*
 * Large blocks go back to the system when they are freed. Else the allocator takes the largest one that it ever saw
 * freed for the measure, and what one slow client made it take stays.
 */
void boundFreeMemory() {
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
}

int run(const std::string& file, const std::string& pluginFile) {
    boundFreeMemory();
    const Configuration configuration = configurationOf(file);
    tell(surprises(configuration));
    host::Loop loop;
    Agent agent(loop, pluginFile, [] {
        host::report("ready");
        sd_notify(0, "READY=1");
    });
    bool stopping = false;
    const auto stop = [&] {
        if (std::exchange(stopping, true)) {
            host::report("asked to stop a second time: ending without waiting");
            loop.stop();
            return;
        }
        sd_notify(0, "STOPPING=1");
        agent.stop(kFlush, [&loop] { loop.stop(); });
    };
    const auto reload = [&] {
        if (stopping) {
            host::report("it is ending: the configuration is not read again");
            return;
        }
        if (file.empty()) {
            host::report("there is no configuration file to read again");
            return;
        }
        sd_notify(0, "RELOADING=1");
        try {
            const Configuration next = readConfiguration(file);
            tell(surprises(next, agent.feedProcess()));
            agent.apply(next);
            host::report(fmt::format("'{}' is in force", file));
        } catch (const std::exception& error) {
            host::reportLines(fmt::format("the configuration stays as it was: {}", error.what()));
        }
        sd_notify(0, "READY=1");
    };
    const auto onTerminate = loop.onSignal(SIGTERM, stop);
    const auto onInterrupt = loop.onSignal(SIGINT, stop);
    const auto onHangUp = loop.onSignal(SIGHUP, reload);
    const auto onLedger = loop.onSignal(SIGUSR1, [&] { tell(agent.ledgerLines()); });
    // From here on there is something to clean up: signals wait for the loop.
    agent.apply(configuration);
    const Watchdog watchdog(loop);
    loop.run();
    tell(agent.ledgerLines());
    return agent.anyDropped() ? host::kFailed : host::kDone;
}

int check(const std::string& file) {
    const Configuration configuration = readConfiguration(file);
    checkGnmi(configuration);
    const std::vector<std::string> warnings = surprises(configuration);
    for (const std::string& line : describe(configuration)) {
        fmt::print("{}\n", host::shown(line));
    }
    for (const std::string& warning : warnings) {
        fmt::print("note: {}\n", host::shown(warning));
    }
    return host::kDone;
}

int runCommandLine(int argc, char** argv) {
    CLI::App app("Keeps subscriptions to the QoS telemetry plug-in going, and hands their samples on.", "qos-agent");
    app.set_version_flag("--version", "qos-agent " QOS_AGENT_VERSION);
    std::string pluginFile;
    std::string file;
    std::function<int()> action;
    app.add_option("--plugin", pluginFile, "Plug-in to load instead of the one beside this program")
        ->envname("NIVEX_QOS_PLUGIN")
        ->type_name("FILE");
    app.require_subcommand(1);
    app.fallthrough();
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return fmt::format("qos-agent: {}\nRun with --help for more information.\n", host::shown(error.what()));
    });
    CLI::App* const runCommand = app.add_subcommand("run", "Run until SIGTERM; SIGHUP reads the configuration again");
    runCommand->add_option("FILE", file, "Configuration; without one the kernel's counters are served on loopback");
    runCommand->callback([&] { action = [&] { return run(file, pluginFile); }; });
    CLI::App* const checkCommand = app.add_subcommand("check", "Say what a configuration would do, and what surprises");
    checkCommand->add_option("FILE", file, "Configuration")->required();
    checkCommand->callback([&] { action = [&] { return check(file); }; });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? host::kDone : host::kUsage;
    }
    return action();
}

}  // namespace

}  // namespace agent

int main(int argc, char** argv) {
    host::keepStandardFiles();
    host::setProgramName("qos-agent");
    try {
        if (argc == 2 && argv[1] == std::string_view(agent::WorkerOrder::kArgument)) {
            return agent::runWorker();
        }
        if (argc == 2 && argv[1] == std::string_view(agent::FeedOrder::kArgument)) {
            return agent::runFeed();
        }
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGXFSZ, SIG_IGN);  // a file at its size limit is a failed write
        return agent::runCommandLine(argc, argv);
    } catch (const host::UsageError& error) {
        host::reportLines(error.what());
        return host::kUsage;
    } catch (const std::exception& error) {
        host::report(error.what());
    }
    return host::kFailed;
}
