/*
 * What the agent tells a child that it starts: its own program again, with the name of the work as its argument and one
 * end of a socket pair as file kControlFile. The order comes first; a worker may then be asked for passes, and ends
 * when the agent's end is closed.
 */
#ifndef DEVHOST_AGENT_ORDER_H
#define DEVHOST_AGENT_ORDER_H

#include <chrono>
#include <cstdint>
#include <string>

#include "devhost/agent/configuration.h"
#include "nivex_qos/sample.h"

namespace agent {

inline constexpr int kControlFile = 3;

/* To sample one path: argument "worker". Answers with a capture (sampling/capture.h). */
struct WorkerOrder {
    static constexpr const char* kArgument = "worker";

    std::string plugin;    // its file; empty: beside the program
    std::string database;  // its file
    std::string alias;
    uint32_t subscription = 0;           // id
    std::chrono::milliseconds every{0};  // 0: passes on request
    bool followRows = false;             // tell which rows have gone from the table
    QosTlmQueryParam request{};

    std::string bytes() const;
    static WorkerOrder read(int file);
};

/* Asks a worker for a pass, a byte for each. */
inline constexpr char kPassRequest = 'p';

/* To feed the database: argument "feed". */
struct FeedOrder {
    static constexpr const char* kArgument = "feed";

    std::string database;
    Configuration::Feed feed;

    std::string bytes() const;
    static FeedOrder read(int file);
};

}  // namespace agent

#endif
