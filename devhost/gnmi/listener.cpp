#include "devhost/gnmi/listener.h"

#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace gnmi {

namespace {

using std::chrono::seconds;

constexpr seconds kPause{1};
// So long without a refusal, and it is over.
constexpr seconds kCalm{10};

// The lowest number that is free is given out, so a connection's tells how many descriptors are in use.
rlim_t descriptorsForConnections() {
    constexpr rlim_t kOfOthers = 200;  // for workers, outputs and files that come later
    constexpr rlim_t kMost = 2200;     // a connection takes some 80 KiB with TLS
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return std::min(limit.rlim_cur, kMost) - std::min(kOfOthers, limit.rlim_cur / 2);
}

}  // namespace

Listener::Listener(host::Loop& loop, const host::ListenAddress& address, std::function<void(host::Descriptor)> take)
    : loop_(loop), socket_(address.listen()), take_(std::move(take)) {
    // Connections inherit it, as they do from gRPC's own sockets: answers go at once.
    const int on = 1;
    setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    pause_ = loop_.timer([this] { watch(); });
    calm_ = loop_.timer([this] { trouble_.tell({}); });
    watch();
}

void Listener::watch() {
    readable_ = loop_.onReadable(socket_.get(), [this] { accept(); });
}

void Listener::accept() {
    host::Descriptor connection(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (connection.get() >= 0) {
        if (static_cast<rlim_t>(connection.get()) >= descriptorsForConnections()) {
            refuse("too many descriptors are in use");
        } else {
            take_(std::move(connection));
        }
    } else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
        // The connection waits, so the socket stays readable.
        refuse(std::generic_category().message(errno));
        readable_ = {};
        pause_.start(kPause);
    }
}

void Listener::refuse(const std::string& why) {
    trouble_.tell({fmt::format("gNMI at {} takes no more connections: {}", address(), why)});
    calm_.start(kCalm);
}

}  // namespace gnmi
