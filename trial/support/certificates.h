// Keys and certificates made on the spot, for servers that only this machine is meant to trust.
#pragma once

#include <filesystem>
#include <memory>

using SSL_CTX = struct ssl_ctx_st;

namespace trial {

/// What is wrong with a server's certificate, if anything.
enum class CertificateKind { good, untrusted, wrongHost, expired };

/// An authority of one's own. Its certificate lies in a PEM file, for HAVREL_CA_FILE; its key never leaves memory.
class CertificateAuthority {
  public:
    /// Writes the authority's certificate to `file`; the folder must exist. Throws std::runtime_error when it cannot.
    explicit CertificateAuthority(std::filesystem::path file);
    ~CertificateAuthority();
    CertificateAuthority(const CertificateAuthority&) = delete;
    CertificateAuthority& operator=(const CertificateAuthority&) = delete;

    const std::filesystem::path& file() const { return file_; }

    /// A server context with a fresh key and a certificate for localhost and 127.0.0.1, unless its kind says otherwise.
    std::shared_ptr<SSL_CTX> serverContext(CertificateKind kind) const;

  private:
    struct Identity;
    std::filesystem::path file_;
    std::unique_ptr<Identity> identity_;
};

} // namespace trial
