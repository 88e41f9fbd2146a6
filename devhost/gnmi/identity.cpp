#include "devhost/gnmi/identity.h"

#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <system_error>

#include "devhost/support/shown.h"

namespace gnmi {

namespace {

std::string readFile(const char* setting, const std::string& file) {
    // Far above what certificates take.
    constexpr size_t kLargestFile = size_t{1} << 20U;
    // Who opens a pipe waits until somebody writes.
    struct stat status = {};
    if (stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw SettingError(setting, fmt::format(" '{}': it is no regular file: name one in PEM", host::shown(file)));
    }
    std::string text(kLargestFile + 1, '\0');
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!stream.is_open() || stream.bad() || (stream.gcount() == 0 && errno != 0)) {
        throw SettingError(setting, fmt::format(" '{}': cannot read it: {}", host::shown(file),
                                                std::generic_category().message(errno)));
    }
    text.resize(static_cast<size_t>(stream.gcount()));
    if (text.size() > kLargestFile) {
        throw SettingError(setting, fmt::format(" '{}': it has more than {} bytes, which is no file in PEM",
                                                host::shown(file), kLargestFile));
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

}  // namespace gnmi
