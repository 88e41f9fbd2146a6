/*
 * The configuration of the agent, from YAML; docs/agent.md describes it for people.
 */
#ifndef DEVHOST_AGENT_CONFIGURATION_H
#define DEVHOST_AGENT_CONFIGURATION_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "devhost/feed/simulated_device.h"
#include "devhost/sampling/subscription.h"
#include "devhost/support/exit.h"

namespace agent {

struct Configuration {
    struct Feed {
        enum class Source : uint8_t { none, kernel, sim };

        Source source = Source::kernel;
        std::chrono::milliseconds every{1000};
        feed::SimOptions device;  // with sim
        uint32_t speed = 1;       // with sim: how many times as fast time passes

        friend bool operator==(const Feed&, const Feed&) = default;
    };

    /* A place to listen at. */
    using Address = std::string;  // "127.0.0.1:9464", "[::1]:9464"

    struct Prometheus {
        Address listen = "127.0.0.1:9464";
        friend bool operator==(const Prometheus&, const Prometheus&) = default;
    };
    struct CaptureFile {
        std::string file;
        uint64_t buffer = uint64_t{16} << 20;  // bytes that may wait
        bool dropOldest = true;                // when they are used up; else the newest
        friend bool operator==(const CaptureFile&, const CaptureFile&) = default;
    };
    using Output = std::variant<Prometheus, CaptureFile>;

    struct Gnmi {
        Address listen = "127.0.0.1:9339";
        std::string certificate, key, clientCa;  // files; the last may be empty
        bool insecure = false;                   // without TLS
        bool allowRemote = false;                // without TLS beyond loopback
        uint32_t maxSubscriptions = 64;
        uint64_t buffer = uint64_t{4} << 20;  // bytes that may wait for a stream's client
        friend bool operator==(const Gnmi&, const Gnmi&) = default;
    };

    std::string device;  // the name that samples carry
    Feed feed;
    std::string database;  // empty: in memory, removed at exit
    std::map<std::string, host::Subscription> subscriptions;
    std::map<std::string, Output> outputs;
    std::optional<Gnmi> gnmi;
};

/*
 * What an output has for itself alone, behind the number of its kind: the place where it listens, or its file. One that
 * is to have the same is the same output, under another name or set differently.
 */
std::pair<size_t, std::string> receiverOf(const Configuration::Output& settings);

/* Faults of a configuration; what() has a line for each: where, what stands there and what would be right. */
class ConfigurationError : public host::UsageError {
  public:
    using UsageError::UsageError;
};

/* Throws ConfigurationError; file is what its lines begin with. */
Configuration parseConfiguration(const std::string& text, const std::string& file);

/* Reads the file; throws ConfigurationError, also when it cannot be read. */
Configuration readConfiguration(const std::string& file);

/* What runs without a file: the kernel's counters every second, gNMI and metrics on loopback. */
Configuration defaultConfiguration();

/* What it would run, a line for each part, for people; with texts of the configuration as they are. */
std::vector<std::string> describe(const Configuration& configuration);

/*
 * What somebody who reads its samples would be surprised by; a line for each. ownFeed: the process of the feed that the
 * agent has by now, which is no other; 0: none.
 */
std::vector<std::string> surprises(const Configuration& configuration, pid_t ownFeed = 0);

}  // namespace agent

#endif
