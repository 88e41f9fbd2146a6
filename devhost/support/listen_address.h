/*
 * Where a server listens: "127.0.0.1:9464", "[::1]:9464", "0.0.0.0:9464".
 */
#ifndef DEVHOST_SUPPORT_LISTEN_ADDRESS_H
#define DEVHOST_SUPPORT_LISTEN_ADDRESS_H

#include <sys/socket.h>

#include <string>
#include <string_view>

#include "devhost/support/descriptor.h"

namespace host {

class ListenAddress {
  public:
    /* An address in numbers and a port; port 0 is any that is free. Throws UsageError, which says what would be right.
     */
    explicit ListenAddress(std::string_view text);

    /* As it was written. */
    const std::string& text() const { return text_; }

    /* Whether only this machine reaches it. */
    bool isLoopback() const;

    /* A socket that listens there, non-blocking; throws std::system_error that names the address. */
    Descriptor listen() const;

  private:
    std::string text_;
    sockaddr_storage address_{};
    socklen_t size_ = 0;
};

/* Where a socket listens, in the form above: with port 0, the one that it was given. */
std::string listeningAt(int socket);

}  // namespace host

#endif
