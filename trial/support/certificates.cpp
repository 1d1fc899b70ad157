#include "trial/support/certificates.h"

#include <cstdio>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <stdexcept>
#include <string>

namespace trial {

namespace {

constexpr long hour = 3600;
constexpr long day = 24 * hour;

template <typename T>
T* must(T* result, const char* what) {
    if (result == nullptr) {
        throw std::runtime_error(std::string("cannot make ") + what);
    }
    return result;
}

void must(int result, const char* what) {
    if (result <= 0) {
        throw std::runtime_error(std::string("cannot make ") + what);
    }
}

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

Key newKey() { return {must(EVP_EC_gen("P-256"), "a key"), EVP_PKEY_free}; }

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension{
        must(X509V3_EXT_conf_nid(nullptr, &context, kind, value), "an extension"), X509_EXTENSION_free};
    must(X509_add_ext(certificate, extension.get(), -1), "an extension");
}

Certificate newCertificate(EVP_PKEY* key, const std::string& name, long validFrom, long validUntil) {
    Certificate certificate{must(X509_new(), "a certificate"), X509_free};
    std::uint64_t serial = 0;
    must(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial), "a serial number");
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial >> 1U);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), validFrom);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), validUntil);
    must(X509_set_pubkey(certificate.get(), key), "a certificate");
    must(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                                    reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0),
         "a name");
    return certificate;
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
    must(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)), "a certificate");
    must(X509_sign(certificate, issuerKey, EVP_sha256()), "a signature");
}

} // namespace

struct CertificateAuthority::Identity {
    Key key = newKey();
    Certificate certificate;

    explicit Identity(const std::string& name) : certificate(newCertificate(key.get(), name, -hour, day)) {
        addExtension(certificate.get(), certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
        addExtension(certificate.get(), certificate.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
        addExtension(certificate.get(), certificate.get(), NID_subject_key_identifier, "hash");
        sign(certificate.get(), certificate.get(), key.get());
    }
};

CertificateAuthority::CertificateAuthority(std::filesystem::path file)
    : file_(std::move(file))
    , identity_(std::make_unique<Identity>("Trial authority")) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pem{must(std::fopen(file_.c_str(), "w"), file_.c_str()),
                                                              std::fclose};
    must(PEM_write_X509(pem.get(), identity_->certificate.get()), file_.c_str());
}

CertificateAuthority::~CertificateAuthority() = default;

std::shared_ptr<SSL_CTX> CertificateAuthority::serverContext(CertificateKind kind) const {
    const Identity stranger("Strange authority");
    const Identity& issuer = kind == CertificateKind::untrusted ? stranger : *identity_;
    const Key key = newKey();
    const Certificate certificate = kind == CertificateKind::expired
                                        ? newCertificate(key.get(), "Trial service", -2 * day, -day)
                                        : newCertificate(key.get(), "Trial service", -hour, day);
    addExtension(certificate.get(), issuer.certificate.get(), NID_subject_alt_name,
                 kind == CertificateKind::wrongHost ? "DNS:elsewhere.example,IP:192.0.2.7"
                                                    : "DNS:localhost,IP:127.0.0.1");
    addExtension(certificate.get(), issuer.certificate.get(), NID_ext_key_usage, "serverAuth");
    sign(certificate.get(), issuer.certificate.get(), issuer.key.get());

    std::shared_ptr<SSL_CTX> context{must(SSL_CTX_new(TLS_server_method()), "a server context"), SSL_CTX_free};
    must(SSL_CTX_use_certificate(context.get(), certificate.get()), "a server context");
    must(SSL_CTX_use_PrivateKey(context.get(), key.get()), "a server context");
    return context;
}

} // namespace trial
