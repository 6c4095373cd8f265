#include "face/TlsCertificate.h"

#include <memory>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "face/SecretFiles.h"

namespace vexo::face {

namespace {

constexpr const char* kCertificateFile = "network-certificate.pem";
constexpr const char* kKeyFile = "network-key.pem";
constexpr long kValiditySeconds = 10L * 366 * 24 * 3600;

struct Free {
    void operator()(X509* x) const { X509_free(x); }
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
    void operator()(BIO* b) const { BIO_free(b); }
    void operator()(X509_EXTENSION* e) const { X509_EXTENSION_free(e); }
};
template <class T> using Owned = std::unique_ptr<T, Free>;

std::string bioText(BIO* bio) {
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

Owned<BIO> readBio(const std::string& text) {
    return Owned<BIO>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::string hexFingerprint(X509* certificate) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (X509_digest(certificate, EVP_sha256(), digest, &length) != 1)
        return {};
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        if (i)
            text += ':';
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 15];
    }
    return text;
}

bool addExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    Owned<X509_EXTENSION> extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    return extension && X509_add_ext(certificate, extension.get(), -1) == 1;
}

} // namespace

std::optional<TlsCertificate> TlsCertificate::fromPem(std::string certificatePem, std::string privateKeyPem) {
    Owned<BIO> certificateBio = readBio(certificatePem);
    Owned<BIO> keyBio = readBio(privateKeyPem);
    Owned<X509> certificate(PEM_read_bio_X509(certificateBio.get(), nullptr, nullptr, nullptr));
    Owned<EVP_PKEY> key(PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr));
    if (!certificate || !key || X509_check_private_key(certificate.get(), key.get()) != 1)
        return std::nullopt;
    TlsCertificate result;
    result.m_fingerprint = hexFingerprint(certificate.get());
    result.m_certificatePem = std::move(certificatePem);
    result.m_privateKeyPem = std::move(privateKeyPem);
    return result;
}

std::optional<TlsCertificate> TlsCertificate::generate(std::string& error) {
    Owned<EVP_PKEY> key(EVP_EC_gen("P-256"));
    Owned<X509> certificate(X509_new());
    if (!key || !certificate) {
        error = "cannot make a key";
        return std::nullopt;
    }
    X509_set_version(certificate.get(), 2);
    // A random serial: a browser that saw an older certificate of ours must not mistake
    // a new one for it.
    unsigned char serial[16];
    if (RAND_bytes(serial, sizeof serial) != 1) {
        error = "no random numbers for the certificate";
        return std::nullopt;
    }
    serial[0] &= 0x7f;
    BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
    ASN1_INTEGER* serialNumber = BN_to_ASN1_INTEGER(number, nullptr);
    X509_set_serialNumber(certificate.get(), serialNumber);
    ASN1_INTEGER_free(serialNumber);
    BN_free(number);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -24L * 3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kValiditySeconds);
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("vexo-watch"), -1, -1,
                               0);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Vexo watch remote"), -1,
                               -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    X509_set_pubkey(certificate.get(), key.get());
    if (!addExtension(certificate.get(), NID_basic_constraints, "critical,CA:FALSE") ||
        !addExtension(certificate.get(), NID_ext_key_usage, "serverAuth") ||
        X509_sign(certificate.get(), key.get(), EVP_sha256()) == 0) {
        error = "cannot sign the certificate";
        return std::nullopt;
    }
    Owned<BIO> certificateOut(BIO_new(BIO_s_mem()));
    Owned<BIO> keyOut(BIO_new(BIO_s_mem()));
    if (PEM_write_bio_X509(certificateOut.get(), certificate.get()) != 1 ||
        PEM_write_bio_PrivateKey(keyOut.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        error = "cannot write the certificate";
        return std::nullopt;
    }
    return fromPem(bioText(certificateOut.get()), bioText(keyOut.get()));
}

std::optional<TlsCertificate> TlsCertificate::loadOrCreate(const std::filesystem::path& folder, std::string& error) {
    if (!makePrivateFolder(folder)) {
        error = "cannot make the folder " + folder.string();
        return std::nullopt;
    }
    FolderLock lock(folder);
    std::optional<std::string> certificatePem = readSmallFile(folder / kCertificateFile);
    std::optional<std::string> keyPem = readSmallFile(folder / kKeyFile);
    if (certificatePem && keyPem) {
        if (auto stored = fromPem(std::move(*certificatePem), std::move(*keyPem)))
            return stored;
    }
    std::optional<TlsCertificate> made = generate(error);
    if (!made)
        return std::nullopt;
    // The key first: a certificate on disk without its key would be replaced at the next start.
    if (!writeFileAtomically(folder / kKeyFile, made->privateKeyPem()) ||
        !writeFileAtomically(folder / kCertificateFile, made->certificatePem())) {
        error = "cannot store the certificate in " + folder.string();
        return std::nullopt;
    }
    return made;
}

} // namespace vexo::face
