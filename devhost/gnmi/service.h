/*
 * gNMI over gRPC: clients subscribe to the paths of the schema, and the agent samples for them.
 *
 * One thread, the loop's, does all the work; gRPC has its own for what comes and goes on the wire. Beside gNMI the
 * server offers gRPC's health checks and reflection.
 */
#ifndef DEVHOST_GNMI_SERVICE_H
#define DEVHOST_GNMI_SERVICE_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "devhost/gnmi/sampler.h"
#include "devhost/support/account.h"
#include "devhost/support/exit.h"
#include "devhost/support/listen_address.h"
#include "devhost/support/loop.h"

namespace gnmi {

struct Settings {
    host::ListenAddress listen{"127.0.0.1:9339"};  // port 0 takes a free one

    /* Files in PEM. Certificate and key come together; with a client CA a client needs a certificate that it signed. */
    std::string certificate;
    std::string key;
    std::string clientCa;

    /* Instead of a certificate: without TLS, and then on loopback addresses only, unless remote ones are allowed. */
    bool insecure = false;
    bool allowRemote = false;

    size_t maxSubscriptions = 64;            // of one request, a list each; the Sampler has its own limit for all
    size_t maxCalls = 256;                   // Subscribe and Get at one time
    size_t waitingBytes = size_t{4} << 20U;  // for each stream, before newer values replace waiting ones
};

/* A setting that cannot be followed; what() begins with its name as it is in a configuration. */
class SettingError : public host::UsageError {
  public:
    SettingError(std::string setting, const std::string& why)
        : UsageError(setting + why), setting_(std::move(setting)) {}

    /* "listen", "certificate", "key", "client-ca", "insecure" */
    const std::string& setting() const { return setting_; }

  private:
    std::string setting_;
};

/* Throws SettingError for what could never be served. Reads the files, listens nowhere. */
void check(const Settings& settings);

/* What became of the values of one call; Subscribe or Get. */
struct CallAccount {
    std::string peer;  // as gRPC names it: "ipv4:127.0.0.1:40312"
    std::string what;  // "STREAM of 2 lists: /qos/..."; fit for a terminal
    host::Account account;
};

class Service {
  public:
    /*
     * Serves from now on. Loop and sampler outlive it. Throws SettingError, and std::runtime_error with the address and
     * the reason when it cannot listen.
     */
    Service(host::Loop& loop, Sampler& sampler, const Settings& settings);

    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /* Where it listens, with the port. */
    const std::string& address() const;

    /* Whether the files of the settings still have what it began with. Throws SettingError for what they must not hold.
     */
    bool hasFilesOf(const Settings& settings) const;

    /* Calls at this moment, and the sum over those that have ended. */
    std::vector<CallAccount> calls() const;
    host::Account ended() const;

    /*
     * Takes no more calls, sends what waits as far as that goes in the time, and ends all calls. done is called on the
     * loop's thread, later, once.
     */
    void stop(std::chrono::milliseconds within, std::function<void()> done);

    /* Ends everything at once: no calls are left. Clients hear why. */
    void end(const char* why);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace gnmi

#endif
