#pragma once

#include <chrono>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

// Single-use pairing codes: 128 random bits, valid for kLifetime, kept in
// `<folder>/pairing-codes.json` only as their hashes, so that `vexo-watch pair` can make one
// that the running watch accepts. kMaximumFailures wrong codes within kFailureWindow lock
// pairing for kLockout in the process that counts them (the one that serves the network).
// Not thread-safe: one object per thread; processes share the file under the folder's lock.
namespace vexo::face {

class PairingCodes {
public:
    using Clock = std::chrono::system_clock;
    static constexpr std::chrono::seconds kLifetime{60};
    static constexpr int kMaximumFailures = 5;
    static constexpr std::chrono::seconds kFailureWindow{60};
    static constexpr std::chrono::seconds kLockout{60};

    enum class Verdict { Accepted, Refused, LockedOut };

    // REQUIRES: `folder` exists and is the user's own (see makePrivateFolder).
    explicit PairingCodes(std::filesystem::path folder);

    // A new code, valid until now + kLifetime; codes issued before stay valid too. Nothing
    // when it cannot be stored.
    [[nodiscard]] std::optional<std::string> issue(Clock::time_point now);

    // Accepted once for a code issued less than kLifetime ago (the code is used up); Refused
    // for anything else, which counts as a failure; LockedOut, whatever the code, while
    // pairing is locked (and the code, if right, stays unused).
    [[nodiscard]] Verdict redeem(std::string_view code, Clock::time_point now);

    [[nodiscard]] bool lockedOut(Clock::time_point now) const;

private:
    void countFailure(Clock::time_point now);

    std::filesystem::path m_file;
    std::filesystem::path m_folder;
    std::deque<Clock::time_point> m_failures;
    std::optional<Clock::time_point> m_lockedUntil;
};

} // namespace vexo::face
