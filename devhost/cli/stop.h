/*
 * The clean stop: SIGINT and SIGTERM become a request that loops ask for and waits end at. main sets it up before any
 * action runs; a program started with exec has the signals' default again.
 */
#ifndef DEVHOST_CLI_STOP_H
#define DEVHOST_CLI_STOP_H

#include <chrono>

namespace host {

void catchStopSignals();

bool stopRequested();

/* Sleeps until the time is reached or the stop is requested; answers stopRequested(). */
bool waitUntil(std::chrono::steady_clock::time_point time);

}  // namespace host

#endif
