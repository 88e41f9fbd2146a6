/*
 * The subcommands of qos-host. Each lives in its own source and adds itself to the program; main.cpp only assembles
 * them, parses the command line, then runs the action that the chosen subcommand left in the invocation.
 *
 * An action answers an exit code. It throws UsageError for arguments that only it can judge (exit 2) and any other
 * std::exception when the work fails (exit 1); main prints the text. SIGPIPE is ignored: a reader that goes away shows
 * as a failed write, which ends the program quietly.
 */
#ifndef DEVHOST_CLI_COMMANDS_H
#define DEVHOST_CLI_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <stdexcept>
#include <string>

namespace host {

enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2 };

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Invocation {
    std::string pluginFile;       // --plugin; empty: the plug-in is looked for
    std::function<int()> action;  // what the chosen subcommand does, set while the command line is parsed
};

void addPathsCommand(CLI::App& app, Invocation& invocation);
void addSampleCommand(CLI::App& app, Invocation& invocation);
void addDecodeCommand(CLI::App& app, Invocation& invocation);
void addFeedCommand(CLI::App& app, Invocation& invocation);
void addDemoCommand(CLI::App& app, Invocation& invocation);

}  // namespace host

#endif
