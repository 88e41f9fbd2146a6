/*
 * Where the service listens, and with what it proves who it is.
 */
#ifndef DEVHOST_GNMI_ENDPOINT_H
#define DEVHOST_GNMI_ENDPOINT_H

#include <grpcpp/security/server_credentials.h>

#include <memory>
#include <string>
#include <vector>

#include "devhost/gnmi/service.h"

namespace gnmi {

/* "127.0.0.1:9339", "[::1]:9339" */
struct Address {
    std::string text;
    bool isLoopback;
};

/* The addresses of `listen`, which are more than one for some names; throws SettingError. */
std::vector<Address> addressesOf(const Settings& settings);

/* The contents of the files; all are empty without TLS. */
struct Identity {
    std::string certificate;
    std::string key;
    std::string clientCa;
    friend bool operator==(const Identity&, const Identity&) = default;
};

/* Reads the files; throws SettingError, also for what they must not hold. */
Identity identityOf(const Settings& settings);

std::shared_ptr<grpc::ServerCredentials> credentialsOf(const Identity& identity);

/* Throws std::runtime_error with the reason if nobody could listen there now. */
void checkFree(const std::string& address);

}  // namespace gnmi

#endif
