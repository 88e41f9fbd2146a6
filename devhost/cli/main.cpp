#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>

#include "devhost/cli/command_line.h"
#include "devhost/cli/exit.h"
#include "devhost/cli/output.h"
#include "devhost/cli/stop.h"

int main(int argc, char** argv) {
    const auto report = [](const std::exception& error) { std::fprintf(stderr, "qos-host: %s\n", error.what()); };
    try {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGXFSZ, SIG_IGN);  // a file at its size limit is a failed write
        host::catchStopSignals();
        const int code = host::runCommandLine(argc, argv);
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
