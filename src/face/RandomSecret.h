#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Secrets that grant access (pairing codes, device tokens): made from the system's
// cryptographic random numbers, and kept only as their hash. Thread-safe.
namespace vexo::face {

// `bytes` random bytes as unpadded base64url (22 characters for 16 bytes: 128 bits). Nothing
// when the random source fails.
[[nodiscard]] std::optional<std::string> makeRandomSecret(std::size_t bytes);

// The SHA-256 of `secret` as lower-case hex: what is stored in place of the secret.
[[nodiscard]] std::string hashOfSecret(std::string_view secret);

// True when `text` could be a secret of ours: 16 to 64 base64url characters. Anything else is
// refused before it is hashed or compared.
[[nodiscard]] bool looksLikeSecret(std::string_view text);

} // namespace vexo::face
