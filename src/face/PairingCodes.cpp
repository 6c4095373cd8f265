#include "face/PairingCodes.h"

#include <nlohmann/json.hpp>

#include "face/JsonText.h"
#include "face/RandomSecret.h"
#include "face/SecretFiles.h"

namespace vexo::face {

namespace {

constexpr std::size_t kCodeBytes = 16;
// More would be a flood of `vexo-watch pair`; the oldest go first.
constexpr std::size_t kMaximumPendingCodes = 16;

std::int64_t seconds(PairingCodes::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

// The codes still valid at `now`, as {"hash", "expires"} objects.
nlohmann::json pendingCodes(const std::filesystem::path& file, PairingCodes::Clock::time_point now) {
    nlohmann::json pending = nlohmann::json::array();
    std::optional<std::string> text = readSmallFile(file);
    std::optional<nlohmann::json> stored = text ? parseJsonText(*text) : std::nullopt;
    if (!stored || !stored->is_array())
        return pending;
    for (const auto& code : *stored) {
        if (code.is_object() && code.value("hash", nlohmann::json()).is_string() &&
            code.value("expires", nlohmann::json()).is_number_integer() &&
            code["expires"].get<std::int64_t>() > seconds(now))
            pending.push_back(code);
    }
    return pending;
}

} // namespace

PairingCodes::PairingCodes(std::filesystem::path folder)
    : m_file(folder / "pairing-codes.json"),
      m_folder(std::move(folder)) {}

std::optional<std::string> PairingCodes::issue(Clock::time_point now) {
    std::optional<std::string> code = makeRandomSecret(kCodeBytes);
    if (!code)
        return std::nullopt;
    FolderLock lock(m_folder);
    if (!lock.locked())
        return std::nullopt;
    nlohmann::json pending = pendingCodes(m_file, now);
    while (pending.size() >= kMaximumPendingCodes)
        pending.erase(pending.begin());
    pending.push_back({{"hash", hashOfSecret(*code)}, {"expires", seconds(now + kLifetime)}});
    if (!writeFileAtomically(m_file, pending.dump()))
        return std::nullopt;
    return code;
}

PairingCodes::Verdict PairingCodes::redeem(std::string_view code, Clock::time_point now) {
    if (lockedOut(now))
        return Verdict::LockedOut;
    if (looksLikeSecret(code)) {
        FolderLock lock(m_folder);
        nlohmann::json pending = pendingCodes(m_file, now);
        const std::string hash = hashOfSecret(code);
        for (auto it = pending.begin(); it != pending.end(); ++it) {
            if ((*it)["hash"] == hash) {
                pending.erase(it);
                // A code that cannot be crossed off in the file would work again: refuse it.
                if (!writeFileAtomically(m_file, pending.dump()))
                    return Verdict::Refused;
                return Verdict::Accepted;
            }
        }
    }
    countFailure(now);
    return lockedOut(now) ? Verdict::LockedOut : Verdict::Refused;
}

bool PairingCodes::lockedOut(Clock::time_point now) const {
    return m_lockedUntil && now < *m_lockedUntil;
}

void PairingCodes::countFailure(Clock::time_point now) {
    while (!m_failures.empty() && m_failures.front() <= now - kFailureWindow)
        m_failures.pop_front();
    m_failures.push_back(now);
    if (static_cast<int>(m_failures.size()) >= kMaximumFailures) {
        m_lockedUntil = now + kLockout;
        m_failures.clear();
    }
}

} // namespace vexo::face
