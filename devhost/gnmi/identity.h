/*
 * With what the service proves who it is.
 */
#ifndef DEVHOST_GNMI_IDENTITY_H
#define DEVHOST_GNMI_IDENTITY_H

#include <grpcpp/security/server_credentials.h>

#include <memory>
#include <string>

#include "devhost/gnmi/service.h"

namespace gnmi {

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

}  // namespace gnmi

#endif
