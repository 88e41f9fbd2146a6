/*
 * The clean stop: SIGINT, SIGTERM and, unless it is ignored (nohup), SIGHUP become a request that loops ask for and
 * waits end at. A process that has not ended 0.7 s after the first of them (it is blocked in a write that nobody reads,
 * or in the middle of long work) does what was left for that case and ends with stopCode(). main sets it up before any
 * action runs; a program started with exec has the signals' default again.
 */
#ifndef DEVHOST_SUPPORT_STOP_H
#define DEVHOST_SUPPORT_STOP_H

#include <chrono>
#include <exception>
#include <functional>
#include <list>

namespace host {

void catchStopSignals();

bool stopRequested();

/* What a program that the signal ends is reported as, 128 and its number; only when the stop is requested. */
int stopCode();

/* Sleeps until the time is reached or the stop is requested; answers stopRequested(). */
bool waitUntil(std::chrono::steady_clock::time_point time);

/* Sleeps until the file can be read or the stop is requested; answers stopRequested(). */
bool waitForInput(int file);

/* Thrown out of work that cannot go on when the stop is requested. */
struct Stopped : std::exception {
    const char* what() const noexcept override { return "stopped"; }
};

/* While it lives: what must still be done if the process does not end by itself, on a thread of its own. */
class AtForcedStop {
  public:
    explicit AtForcedStop(std::function<void()> work);
    ~AtForcedStop();
    AtForcedStop(const AtForcedStop&) = delete;
    AtForcedStop& operator=(const AtForcedStop&) = delete;

  private:
    std::list<std::function<void()>>::iterator place_;
};

}  // namespace host

#endif
