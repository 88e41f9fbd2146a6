#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>

#include "devhost/cli/commands.h"
#include "devhost/cli/output.h"
#include "devhost/cli/stop.h"

namespace {

int run(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);  // a file at its size limit is a failed write
    host::catchStopSignals();
    CLI::App app("Runs the QoS telemetry plug-in off the device: samples its paths, feeds its database.", "qos-host");
    host::Invocation invocation;
    app.set_version_flag("--version", "qos-host " QOS_HOST_VERSION);
    app.add_option("--plugin", invocation.pluginFile, "Plug-in to load instead of the one beside this program")
        ->envname("NIVEX_QOS_PLUGIN")
        ->type_name("FILE");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return fmt::format("qos-host: {}\nRun with --help for more information.\n", error.what());
    });
    app.require_subcommand(1);
    app.fallthrough();
    host::addPathsCommand(app, invocation);
    host::addSampleCommand(app, invocation);
    host::addDecodeCommand(app, invocation);
    host::addFeedCommand(app, invocation);
    host::addDemoCommand(app, invocation);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (const auto unknown = app.remaining(); app.get_subcommands().empty() && !unknown.empty()) {
            throw host::UsageError(fmt::format(
                "there is no command '{}'; the commands are paths, sample, decode, feed and demo", unknown.front()));
        }
        return app.exit(error) == 0 ? host::kDone : host::kUsage;
    }
    return invocation.action();
}

}  // namespace

int main(int argc, char** argv) {
    const auto report = [](const std::exception& error) { std::fprintf(stderr, "qos-host: %s\n", error.what()); };
    try {
        const int code = run(argc, argv);
        host::flushOutput();
        return code;
    } catch (const host::UsageError& error) {
        report(error);
        return host::kUsage;
    } catch (const std::system_error& error) {
        if (std::ferror(stdout) == 0) {
            report(error);
        } else if (error.code() == std::errc::broken_pipe) {
            return host::kDone;  // the reader has seen enough
        } else {
            report(std::system_error(error.code(), "cannot write the output"));
        }
    } catch (const std::exception& error) {
        report(error);
    }
    return host::kFailed;
}
