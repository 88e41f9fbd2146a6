/*
 * The command line of qos-host: every command and option with its help, in one place.
 */
#ifndef DEVHOST_CLI_COMMAND_LINE_H
#define DEVHOST_CLI_COMMAND_LINE_H

namespace host {

/* Runs the command that the arguments name; answers its exit code and throws what it throws. */
int runCommandLine(int argc, char** argv);

}  // namespace host

#endif
