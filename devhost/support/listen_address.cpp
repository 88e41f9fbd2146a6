#include "devhost/support/listen_address.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>

#include "devhost/support/exit.h"

namespace host {

namespace {

template <class Address>
const Address& as(const sockaddr_storage& address) {
    return reinterpret_cast<const Address&>(address);
}

bool isPort(std::string_view text) {
    return !text.empty() && text.size() <= 5 &&
           std::ranges::all_of(text, [](char digit) { return digit >= '0' && digit <= '9'; }) &&
           std::stoi(std::string(text)) <= UINT16_MAX;
}

}  // namespace

ListenAddress::ListenAddress(std::string_view text) : text_(text) {
    const size_t colon = text.rfind(':');
    std::string_view name = text.substr(0, std::min(colon, text.size()));
    const bool bracketed = name.size() > 2 && name.front() == '[' && name.back() == ']';
    if (bracketed) {
        name = name.substr(1, name.size() - 2);
    }
    const bool complete = colon != std::string_view::npos && !name.empty() && isPort(text.substr(colon + 1)) &&
                          bracketed == (name.find(':') != std::string_view::npos) &&
                          text.find('\0') == std::string_view::npos;
    addrinfo wanted{};
    wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (!complete ||
        getaddrinfo(std::string(name).c_str(), std::string(text.substr(colon + 1)).c_str(), &wanted, &found) != 0) {
        throw UsageError(fmt::format(
            "'{}' is no address to listen at: an address in numbers and a port from 0 to 65535 are due, as in "
            "127.0.0.1:9464 or [::1]:9464",
            text));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    std::memcpy(&address_, found->ai_addr, found->ai_addrlen);
    size_ = found->ai_addrlen;
}

bool ListenAddress::isLoopback() const {
    if (address_.ss_family == AF_INET) {
        return ntohl(as<sockaddr_in>(address_).sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
    }
    return std::memcmp(&as<sockaddr_in6>(address_).sin6_addr, &in6addr_loopback, sizeof in6addr_loopback) == 0;
}

Descriptor ListenAddress::listen() const {
    Descriptor listener(socket(address_.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (listener.get() < 0 || setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listener.get(), &as<sockaddr>(address_), size_) != 0 || ::listen(listener.get(), SOMAXCONN) != 0) {
        throw std::system_error(errno, std::generic_category(), fmt::format("cannot listen at {}", text_));
    }
    return listener;
}

std::string listeningAt(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    std::array<char, NI_MAXHOST> name{};
    std::array<char, NI_MAXSERV> port{};
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        getnameinfo(reinterpret_cast<const sockaddr*>(&address), size, name.data(), name.size(), port.data(),
                    port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot tell where a socket listens");
    }
    const bool bracketed = address.ss_family == AF_INET6;
    return fmt::format("{}{}{}:{}", bracketed ? "[" : "", name.data(), bracketed ? "]" : "", port.data());
}

}  // namespace host
