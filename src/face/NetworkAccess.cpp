#include "face/NetworkAccess.h"

#include <nlohmann/json.hpp>

#include "face/JsonText.h"
#include "face/QrCode.h"
#include "face/RandomSecret.h"
#include "platform/log/Log.h"

namespace vexo::face {

namespace {

constexpr std::string_view kComponent = "face";

NetworkAccess::Reply json(int status, const nlohmann::json& body) {
    return {status, "application/json", body.dump(), {}};
}

NetworkAccess::Reply error(int status, const std::string& reason) {
    return json(status, {{"ok", false}, {"error", reason}});
}

std::string stringField(const nlohmann::json& body, const char* name) {
    auto found = body.find(name);
    return found != body.end() && found->is_string() ? found->get<std::string>() : std::string();
}

} // namespace

NetworkAccess::NetworkAccess(std::filesystem::path folder, TlsCertificate certificate, RequestGuard guard,
                             std::string url, std::filesystem::path webRoot)
    : m_folder(folder),
      m_certificate(std::move(certificate)),
      m_guard(std::move(guard)),
      m_url(std::move(url)),
      m_files(std::move(webRoot)),
      m_devices(folder),
      m_codes(folder) {}

NetworkAccess::Verdict NetworkAccess::screen(const RequestHead& request, Clock::time_point now) {
    if (!m_guard.hostAllowed(request.host))
        return {error(403, "this address does not name this computer"), {}};
    const bool post = request.method == "POST";
    if ((post || request.upgrade) && !m_guard.originAllowed(request.origin))
        return {error(403, "only pages of this server may send that"), {}};
    if (request.path == "/api/pair") {
        if (!post) {
            Reply reply = error(405, "use POST on /api/pair");
            reply.headers.emplace_back("Allow", "POST");
            return {std::move(reply), {}};
        }
        return {pair(request, now), {}};
    }
    if (request.path == "/api/network" || request.path.starts_with("/api/network/"))
        return {error(403, "devices are managed on the computer's own page"), {}};
    if (!request.upgrade) {
        for (std::string_view path : kPublicPaths) {
            if (request.path == path)
                return {};
        }
    }
    std::string_view token = request.cookie ? RequestGuard::tokenFromCookies(*request.cookie) : std::string_view();
    if (!token.empty() && m_devices.authenticate(token, now))
        return {std::nullopt, hashOfSecret(token)};
    return {notPaired(request), {}};
}

NetworkAccess::Reply NetworkAccess::pair(const RequestHead& request, Clock::time_point now) {
    std::optional<nlohmann::json> body = parseJsonText(request.body);
    std::string code = body && body->is_object() ? stringField(*body, "code") : std::string();
    switch (m_codes.redeem(code, now)) {
    case PairingCodes::Verdict::LockedOut: {
        log::warning(kComponent, "pairing is locked for a minute after repeated wrong codes");
        Reply reply = error(429, "too many wrong codes; pairing is locked for a minute");
        reply.headers.emplace_back("Retry-After", std::to_string(PairingCodes::kLockout.count()));
        return reply;
    }
    case PairingCodes::Verdict::Refused:
        log::info(kComponent, "a pairing attempt with a wrong, used or expired code was refused");
        return error(403, "this pairing code is wrong, used or expired; make a new one on the computer");
    case PairingCodes::Verdict::Accepted:
        break;
    }
    std::string wanted = body && body->is_object() ? stringField(*body, "name") : std::string();
    if (DeviceTokens::cleanName(wanted).empty())
        wanted = DeviceTokens::nameForUserAgent(request.userAgent.value_or(""));
    std::optional<DeviceTokens::Pairing> pairing = m_devices.add(wanted, now);
    if (!pairing)
        return error(503, "the device cannot be stored (too many paired devices?)");
    log::info(kComponent, "paired a device: " + pairing->name);
    Reply reply = json(200, {{"ok", true}, {"name", pairing->name}});
    reply.headers.emplace_back("Set-Cookie", RequestGuard::tokenCookie(pairing->token));
    return reply;
}

NetworkAccess::Reply NetworkAccess::notPaired(const RequestHead& request) const {
    if (request.path.starts_with("/api/") || request.method != "GET")
        return error(401, "this device is not paired: open the pairing code shown by vexo-watch on the computer");
    StaticFiles::Result page = m_files.find("/pair.html");
    if (page.status != StaticFiles::Status::Found)
        return {401,
                "text/plain; charset=utf-8",
                "This device is not paired with the watch. On the computer, run `vexo-watch pair` or press "
                "\"Pair a device\" on the face's page, then scan the code.\n",
                {}};
    return {401, page.contentType, std::move(page.body), {}};
}

std::optional<std::string> NetworkAccess::newPairingUrl(Clock::time_point now) {
    std::optional<std::string> code = m_codes.issue(now);
    if (!code)
        return std::nullopt;
    return m_url + "#" + *code;
}

std::optional<NetworkAccess::Reply> NetworkAccess::answerLocal(const RequestHead& request, bool originAllowed,
                                                               Clock::time_point now) {
    const std::string_view path = request.path;
    if (path != "/api/network" && !path.starts_with("/api/network/"))
        return std::nullopt;
    const bool post = request.method == "POST";
    if (path == "/api/network") {
        if (request.method != "GET" && request.method != "HEAD")
            return error(405, "use GET on /api/network");
        nlohmann::json devices = nlohmann::json::array();
        for (const auto& device : m_devices.devices())
            devices.push_back({{"name", device.name}, {"paired", device.pairedAt}, {"lastUsed", device.lastUsed}});
        return json(
            200,
            {{"enabled", true}, {"url", m_url}, {"fingerprint", m_certificate.fingerprint()}, {"devices", devices}});
    }
    if (!post)
        return error(405, "use POST on " + std::string(path));
    if (!originAllowed)
        return error(403, "only pages of this server may manage devices");
    std::optional<nlohmann::json> body = parseJsonText(request.body);
    if (path == "/api/network/pairing") {
        std::optional<std::string> url = newPairingUrl(now);
        std::optional<QrCode> code = url ? QrCode::encode(*url) : std::nullopt;
        if (!code)
            return error(500, "no pairing code can be made");
        return json(200,
                    {{"ok", true}, {"url", *url}, {"qr", code->svg()}, {"expires", PairingCodes::kLifetime.count()}});
    }
    if (!body || !body->is_object())
        return error(400, "the body is not a JSON object");
    const std::string name = stringField(*body, "name");
    if (path == "/api/network/revoke") {
        if (!m_devices.revoke(name))
            return error(404, "no paired device is named '" + name + "'");
        log::info(kComponent, "revoked the device " + name);
        return json(200, {{"ok", true}});
    }
    if (path == "/api/network/rename") {
        switch (m_devices.rename(name, stringField(*body, "to"))) {
        case DeviceTokens::RenameResult::Renamed:
            return json(200, {{"ok", true}});
        case DeviceTokens::RenameResult::NoSuchDevice:
            return error(404, "no paired device is named '" + name + "'");
        case DeviceTokens::RenameResult::BadName:
            return error(400, "a device's name needs a visible character");
        case DeviceTokens::RenameResult::NameTaken:
            return error(409, "another device has that name");
        case DeviceTokens::RenameResult::NotStored:
            return error(500, "the change cannot be stored");
        }
    }
    return error(404, "no such interface: " + std::string(path));
}

} // namespace vexo::face
