#include "face/RandomSecret.h"

#include <vector>

#include <openssl/evp.h>
#include <openssl/rand.h>

namespace vexo::face {

namespace {

constexpr char kBase64Url[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

bool isBase64UrlCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

} // namespace

std::optional<std::string> makeRandomSecret(std::size_t bytes) {
    std::vector<unsigned char> random(bytes);
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1)
        return std::nullopt;
    std::string text;
    unsigned bits = 0;
    int count = 0;
    for (unsigned char byte : random) {
        bits = (bits << 8) | byte;
        count += 8;
        while (count >= 6) {
            count -= 6;
            text += kBase64Url[(bits >> count) & 63];
        }
    }
    if (count > 0)
        text += kBase64Url[(bits << (6 - count)) & 63];
    return text;
}

std::string hashOfSecret(std::string_view secret) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(secret.data(), secret.size(), digest, &length, EVP_sha256(), nullptr);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 15];
    }
    return text;
}

bool looksLikeSecret(std::string_view text) {
    if (text.size() < 16 || text.size() > 64)
        return false;
    for (char c : text) {
        if (!isBase64UrlCharacter(c))
            return false;
    }
    return true;
}

} // namespace vexo::face
