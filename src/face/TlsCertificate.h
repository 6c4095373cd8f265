#pragma once

#include <filesystem>
#include <optional>
#include <string>

// The network listener's self-signed certificate and its private key (EC P-256), made on
// first use and kept in a folder of the user's as "network-certificate.pem" and
// "network-key.pem" (mode 0600). The same certificate serves every later start, so that a
// phone that accepted it once keeps trusting it. Values: copy freely, any thread.
namespace vexo::face {

class TlsCertificate {
public:
    // Reads the pair from `folder`, or makes and stores a new one when there is none (or the
    // stored one cannot be read). Nothing, with the reason in `error`, when neither works.
    // Takes the folder's lock while it makes one (see SecretFiles.h).
    [[nodiscard]] static std::optional<TlsCertificate> loadOrCreate(const std::filesystem::path& folder,
                                                                    std::string& error);

    // A fresh pair, stored nowhere.
    [[nodiscard]] static std::optional<TlsCertificate> generate(std::string& error);

    [[nodiscard]] const std::string& certificatePem() const { return m_certificatePem; }
    [[nodiscard]] const std::string& privateKeyPem() const { return m_privateKeyPem; }
    // The SHA-256 of the certificate's DER form as upper-case hex pairs joined by ':', the
    // form browsers show in their certificate viewers.
    [[nodiscard]] const std::string& fingerprint() const { return m_fingerprint; }

private:
    // Nothing when `certificatePem` and `privateKeyPem` are not a matching pair.
    static std::optional<TlsCertificate> fromPem(std::string certificatePem, std::string privateKeyPem);

    std::string m_certificatePem;
    std::string m_privateKeyPem;
    std::string m_fingerprint;
};

} // namespace vexo::face
