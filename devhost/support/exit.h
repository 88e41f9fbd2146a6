/*
 * How a command of qos-host ends.
 */
#ifndef DEVHOST_SUPPORT_EXIT_H
#define DEVHOST_SUPPORT_EXIT_H

#include <stdexcept>

namespace host {

enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2 };

/* Arguments that cannot be followed; the text names them and what would be right. Ends the program with kUsage. */
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace host

#endif
