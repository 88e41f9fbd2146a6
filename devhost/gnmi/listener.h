/*
 * Where clients connect. gRPC would listen itself, but stops for good when it once runs out of descriptors.
 */
#ifndef DEVHOST_GNMI_LISTENER_H
#define DEVHOST_GNMI_LISTENER_H

#include <functional>
#include <string>

#include "devhost/support/descriptor.h"
#include "devhost/support/listen_address.h"
#include "devhost/support/loop.h"
#include "devhost/support/trouble.h"

namespace gnmi {

class Listener {
  public:
    /*
     * Hands each connection over, non-blocking, on the loop's thread, and closes those that would leave the rest of the
     * program too few descriptors. Throws std::system_error that names the address when it cannot listen there.
     */
    Listener(host::Loop& loop, const host::ListenAddress& address, std::function<void(host::Descriptor)> take);

    /* The address with its port. */
    std::string address() const { return host::listeningAt(socket_.get()); }

  private:
    void watch();
    void accept();
    void refuse(const std::string& why);

    host::Loop& loop_;
    const host::Descriptor socket_;
    const std::function<void(host::Descriptor)> take_;
    host::Trouble trouble_{"taking gNMI connections"};
    host::Loop::Watch readable_;
    host::Loop::Watch pause_;
    host::Loop::Watch calm_;
};

}  // namespace gnmi

#endif
