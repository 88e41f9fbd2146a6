/*
 * What is wrong with a request of a client.
 */
#ifndef DEVHOST_GNMI_FAULT_H
#define DEVHOST_GNMI_FAULT_H

#include <grpcpp/support/status.h>

#include <stdexcept>
#include <string>

namespace gnmi {

/* Ends the call with the status; what() names the input and what would be right, and may go to a terminal. */
class Fault : public std::runtime_error {
  public:
    Fault(grpc::StatusCode code, const std::string& why) : std::runtime_error(why), code_(code) {}

    grpc::Status status() const { return {code_, what()}; }

  private:
    grpc::StatusCode code_;
};

}  // namespace gnmi

#endif
