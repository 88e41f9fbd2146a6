#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>

#include "devhost/cli/command_line.h"
#include "devhost/cli/output.h"
#include "devhost/support/exit.h"
#include "devhost/support/standard_files.h"
#include "devhost/support/stop.h"
#include "devhost/support/trouble.h"

int main(int argc, char** argv) {
    host::keepStandardFiles();
    try {
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGXFSZ, SIG_IGN);  // a file at its size limit is a failed write
        host::catchStopSignals();
        const int code = host::runCommandLine(argc, argv);
        host::flushOutput();
        return code;
    } catch (const host::UsageError& error) {
        host::report(error.what());
        return host::kUsage;
    } catch (const std::system_error& error) {
        if (std::ferror(stdout) == 0) {
            host::report(error.what());
        } else if (error.code() == std::errc::broken_pipe) {
            return host::kDone;  // the reader has seen enough
        } else {
            host::report(std::system_error(error.code(), "cannot write the output").what());
        }
    } catch (const std::exception& error) {
        host::report(error.what());
    }
    return host::kFailed;
}
