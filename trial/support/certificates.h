// Keys and certificates of test servers, made on the spot.
#pragma once

#include <filesystem>
#include <memory>

using SSL_CTX = struct ssl_ctx_st;

namespace trial {

enum class CertificateKind { good, untrusted, wrongHost, expired };

/// An authority of the trial's own, with its certificate in a PEM file for HAVREL_CA_FILE. Throws std::runtime_error if
/// something can't be made or written.
class CertificateAuthority {
  public:
    /// Writes the authority's certificate to `file`, in a folder that exists.
    explicit CertificateAuthority(std::filesystem::path file);
    ~CertificateAuthority();
    CertificateAuthority(const CertificateAuthority&) = delete;
    CertificateAuthority& operator=(const CertificateAuthority&) = delete;

    const std::filesystem::path& file() const { return file_; }

    /// A server context with a fresh key and a certificate for localhost and 127.0.0.1; with `wrongHost`, for neither.
    std::shared_ptr<SSL_CTX> serverContext(CertificateKind kind) const;

  private:
    struct Identity;
    std::filesystem::path file_;
    std::unique_ptr<Identity> identity_;
};

} // namespace trial
