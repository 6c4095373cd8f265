#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "face/DeviceTokens.h"
#include "face/PairingCodes.h"
#include "face/RequestGuard.h"
#include "face/StaticFiles.h"
#include "face/TlsCertificate.h"

// The face's network mode, apart from the sockets: which network requests are let through,
// pairing a device, and the computer's own page managing it all. The face server asks it
// about every request from the network before serving it, and hands it the management
// requests that reach the loopback listener.
//
// Network requests (screen()):
//   a Host that is not this machine's                        403
//   a POST or upgrade whose Origin is not this machine's      403
//   POST /api/pair {"code"}: a pairing code for a token       200 + the token's cookie; 403 wrong,
//                                                              used or expired; 429 while locked out
//   /api/network/...                                          403 (the computer's page only)
//   the pairing page's own files (kPublicPaths)               let through without a token
//   anything else without a paired device's token             401 (the pairing page, or JSON for /api/)
// Loopback requests (answerLocal()):
//   GET  /api/network             {"enabled", "url", "fingerprint", "devices": [{name, paired, lastUsed}]}
//   POST /api/network/pairing     {"url" (with a new code in its fragment), "qr" (SVG), "expires"}
//   POST /api/network/revoke      {"name"}: 200, 404
//   POST /api/network/rename      {"name", "to"}: 200, 400, 404, 409
// Server thread only (the files it keeps are shared with other processes; see SecretFiles.h).
namespace vexo::face {

class NetworkAccess {
public:
    using Clock = std::chrono::system_clock;

    struct RequestHead {
        std::string_view method; // "GET", "POST"...
        std::string_view path;   // without query or fragment
        std::optional<std::string_view> host;
        std::optional<std::string_view> origin;
        std::optional<std::string_view> cookie;
        std::optional<std::string_view> userAgent;
        bool upgrade = false;
        std::string_view body;
    };

    struct Reply {
        int status = 200;
        std::string contentType = "application/json";
        std::string body;
        std::vector<std::pair<std::string, std::string>> headers;
    };

    struct Verdict {
        // Answer this instead of serving the request.
        std::optional<Reply> reply;
        // Otherwise: the hash of the token that let it through (empty for a public file).
        std::string tokenHash;
    };

    // `folder` holds the device and code files and exists; `url` is what devices open
    // ("https://ADDR:PORT/"); `webRoot` holds pair.html, the page of a device not paired.
    NetworkAccess(std::filesystem::path folder, TlsCertificate certificate, RequestGuard guard, std::string url,
                  std::filesystem::path webRoot);

    [[nodiscard]] Verdict screen(const RequestHead& request, Clock::time_point now);

    // The answer to a management request of the computer's own page, or nothing when `path`
    // is not one. `originAllowed`: the loopback listener's own Origin check passed.
    [[nodiscard]] std::optional<Reply> answerLocal(const RequestHead& request, bool originAllowed,
                                                   Clock::time_point now);

    // A new pairing address: the url with a fresh code in its fragment. Nothing when no code
    // can be made.
    [[nodiscard]] std::optional<std::string> newPairingUrl(Clock::time_point now);

    // Re-reads the device list when another process changed it; true when it may have.
    bool refreshDevices() { return m_devices.refresh(); }
    // True while a device holds the token with this hash.
    [[nodiscard]] bool tokenValid(std::string_view tokenHash) const { return m_devices.holdsHash(tokenHash); }

    [[nodiscard]] const TlsCertificate& certificate() const { return m_certificate; }
    [[nodiscard]] const std::string& url() const { return m_url; }

    // Paths served from the network without a token: what the pairing page and an installed
    // web app's launcher need before the device is paired.
    static constexpr std::string_view kPublicPaths[] = {
        "/pair.html",          "/pair.js",       "/manifest.webmanifest", "/icons/icon-192.png",
        "/icons/icon-512.png", "/icons/icon.svg"};

private:
    Reply pair(const RequestHead& request, Clock::time_point now);
    Reply notPaired(const RequestHead& request) const;

    std::filesystem::path m_folder;
    TlsCertificate m_certificate;
    RequestGuard m_guard;
    std::string m_url;
    StaticFiles m_files;
    DeviceTokens m_devices;
    PairingCodes m_codes;
};

} // namespace vexo::face
