#include "devhost/gnmi/endpoint.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "devhost/support/descriptor.h"
#include "devhost/support/shown.h"

namespace gnmi {

namespace {

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

struct HostAndPort {
    std::string host;
    std::string port;
};

HostAndPort split(const std::string& listen) {
    const auto faultOf = [&](const char* why) {
        return SettingError("listen",
                            fmt::format(" '{}': {}, write ADDRESS:PORT or [IPV6]:PORT", host::shown(listen), why));
    };
    const size_t colon = listen.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        throw faultOf("an address and a port are needed");
    }
    std::string host = listen.substr(0, colon);
    const std::string port = listen.substr(colon + 1);
    if (host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find_first_of("[]:") != std::string::npos) {
        throw faultOf("an IPv6 address stands in brackets");
    }
    uint16_t number = 0;
    const char* const end = port.data() + port.size();
    if (const auto [rest, error] = std::from_chars(port.data(), end, number); error != std::errc{} || rest != end) {
        throw faultOf("the port is a number from 0 to 65535");
    }
    return {host, port};
}

Addresses resolve(const HostAndPort& wanted, int flags, int& error) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV | flags;
    addrinfo* list = nullptr;
    error = getaddrinfo(wanted.host.c_str(), wanted.port.c_str(), &hints, &list);
    return Addresses(error == 0 ? list : nullptr);
}

bool isLoopback(const sockaddr& address) {
    if (address.sa_family == AF_INET) {
        constexpr uint32_t kLoopbackNet = 127;
        return ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr) >> 24U == kLoopbackNet;
    }
    const in6_addr& address6 = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
    return IN6_IS_ADDR_LOOPBACK(&address6);
}

std::string textOf(const addrinfo& address) {
    std::array<char, NI_MAXHOST> host;
    std::array<char, NI_MAXSERV> port;
    if (getnameinfo(address.ai_addr, address.ai_addrlen, host.data(), host.size(), port.data(), port.size(),
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        throw std::runtime_error("an address cannot be written as text");
    }
    return address.ai_family == AF_INET6 ? fmt::format("[{}]:{}", host.data(), port.data())
                                         : fmt::format("{}:{}", host.data(), port.data());
}

std::string readFile(const char* setting, const std::string& file) {
    // Far above what certificates take.
    constexpr size_t kLargest = size_t{1} << 20U;
    std::string text(kLargest + 1, '\0');
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!stream.is_open() || stream.bad() || (stream.gcount() == 0 && errno != 0)) {
        throw SettingError(setting, fmt::format(" '{}': cannot read it: {}", host::shown(file),
                                                std::generic_category().message(errno)));
    }
    text.resize(static_cast<size_t>(stream.gcount()));
    if (text.size() > kLargest) {
        throw SettingError(setting, fmt::format(" '{}': it has more than {} bytes, which is no file in PEM",
                                                host::shown(file), kLargest));
    }
    return text;
}

struct FreeBio {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
struct FreeCertificate {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Bio = std::unique_ptr<BIO, FreeBio>;
using Certificate = std::unique_ptr<X509, FreeCertificate>;
using Key = std::unique_ptr<EVP_PKEY, FreeKey>;

Bio bioOf(const std::string& pem) {
    return Bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
}

// Nobody is there to type one.
int noPassphrase(char*, int, int, void*) {
    return -1;
}

Certificate certificateOf(const char* setting, const std::string& file, const std::string& pem) {
    Certificate certificate(PEM_read_bio_X509(bioOf(pem).get(), nullptr, noPassphrase, nullptr));
    ERR_clear_error();
    if (!certificate) {
        throw SettingError(setting, fmt::format(" '{}': it holds no certificate in PEM (-----BEGIN CERTIFICATE-----)",
                                                host::shown(file)));
    }
    return certificate;
}

}  // namespace

std::vector<Address> addressesOf(const Settings& settings) {
    const HostAndPort wanted = split(settings.listen);
    int error = 0;
    const Addresses found = resolve(wanted, 0, error);
    if (error != 0) {
        throw SettingError("listen", fmt::format(" '{}': {}", host::shown(settings.listen), gai_strerror(error)));
    }
    std::vector<Address> addresses;
    for (const addrinfo* each = found.get(); each != nullptr; each = each->ai_next) {
        addresses.push_back({textOf(*each), isLoopback(*each->ai_addr)});
        if (settings.insecure && !settings.allowRemote && !addresses.back().isLoopback) {
            throw SettingError("listen", fmt::format(" '{}': without TLS only loopback addresses are served: take "
                                                     "127.0.0.1, give a certificate, or say allow-remote: true",
                                                     host::shown(settings.listen)));
        }
    }
    return addresses;
}

Identity identityOf(const Settings& settings) {
    Identity identity;
    const bool files = !settings.certificate.empty() || !settings.key.empty() || !settings.clientCa.empty();
    if (settings.insecure) {
        if (files) {
            throw SettingError("insecure", ": certificate, key and client-ca are for TLS: leave them out, or insecure");
        }
        return identity;
    }
    if (settings.certificate.empty()) {
        throw SettingError("certificate",
                           ": it is missing: give certificate and key (files in PEM) for TLS, or say "
                           "insecure: true to serve loopback addresses without");
    }
    if (settings.key.empty()) {
        throw SettingError("key", ": it is missing: give the private key of the certificate (a file in PEM)");
    }
    identity.certificate = readFile("certificate", settings.certificate);
    identity.key = readFile("key", settings.key);
    const Certificate certificate = certificateOf("certificate", settings.certificate, identity.certificate);
    const Key key(PEM_read_bio_PrivateKey(bioOf(identity.key).get(), nullptr, noPassphrase, nullptr));
    ERR_clear_error();
    if (!key) {
        throw SettingError("key", fmt::format(" '{}': it holds no private key in PEM without a passphrase",
                                              host::shown(settings.key)));
    }
    const bool fits = X509_check_private_key(certificate.get(), key.get()) == 1;
    ERR_clear_error();
    if (!fits) {
        throw SettingError("key", fmt::format(" '{}': it is not the key of the certificate '{}'",
                                              host::shown(settings.key), host::shown(settings.certificate)));
    }
    if (!settings.clientCa.empty()) {
        identity.clientCa = readFile("client-ca", settings.clientCa);
        certificateOf("client-ca", settings.clientCa, identity.clientCa);
    }
    return identity;
}

std::shared_ptr<grpc::ServerCredentials> credentialsOf(const Identity& identity) {
    if (identity == Identity()) {
        return grpc::InsecureServerCredentials();
    }
    grpc::SslServerCredentialsOptions options(identity.clientCa.empty()
                                                  ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                                                  : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
    options.pem_key_cert_pairs.push_back({identity.key, identity.certificate});
    options.pem_root_certs = identity.clientCa;
    return grpc::SslServerCredentials(options);
}

void checkFree(const std::string& address) {
    int error = 0;
    const Addresses found = resolve(split(address), AI_NUMERICHOST, error);
    if (error != 0) {
        throw std::runtime_error(fmt::format("cannot listen on {}: {}", address, gai_strerror(error)));
    }
    const host::Descriptor file(socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int yes = 1;
    if (file.get() < 0 || setsockopt(file.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        bind(file.get(), found->ai_addr, found->ai_addrlen) != 0 || listen(file.get(), 1) != 0) {
        throw std::runtime_error(
            fmt::format("cannot listen on {}: {}", address, std::generic_category().message(errno)));
    }
}

void check(const Settings& settings) {
    addressesOf(settings);
    identityOf(settings);
}

}  // namespace gnmi
