#include "face/RequestGuard.h"

#include <cctype>

namespace vexo::face {

namespace {

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

// A year: pairing again is a chore, and revoking is how a device loses access.
constexpr int kCookieLifetimeSeconds = 366 * 24 * 3600;

} // namespace

RequestGuard::RequestGuard(std::set<std::string> hosts, std::uint16_t port)
    : m_port(port) {
    for (const auto& host : hosts)
        m_hosts.insert(lower(host));
}

bool RequestGuard::hostAllowed(std::optional<std::string_view> header) const {
    if (!header)
        return false;
    std::string_view authority = *header;
    std::string_view host = authority;
    std::string_view port;
    // "[v6]:port", "[v6]", "name:port", "name"
    std::size_t colon = authority.rfind(':');
    std::size_t bracket = authority.rfind(']');
    if (colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket)) {
        host = authority.substr(0, colon);
        port = authority.substr(colon + 1);
    }
    if (port.empty() ? m_port != 443 : port != std::to_string(m_port))
        return false;
    return m_hosts.count(lower(host)) > 0;
}

bool RequestGuard::originAllowed(std::optional<std::string_view> origin) const {
    if (!origin)
        return true;
    constexpr std::string_view scheme = "https://";
    std::string value = lower(*origin);
    return value.starts_with(scheme) && hostAllowed(std::string_view(value).substr(scheme.size()));
}

std::string_view RequestGuard::tokenFromCookies(std::string_view header) {
    while (!header.empty()) {
        std::size_t end = header.find(';');
        std::string_view pair = trim(header.substr(0, end));
        std::size_t equals = pair.find('=');
        if (equals != std::string_view::npos && trim(pair.substr(0, equals)) == kTokenCookie)
            return trim(pair.substr(equals + 1));
        if (end == std::string_view::npos)
            break;
        header.remove_prefix(end + 1);
    }
    return {};
}

std::string RequestGuard::tokenCookie(std::string_view token) {
    return std::string(kTokenCookie) + "=" + std::string(token) +
           "; Path=/; Max-Age=" + std::to_string(kCookieLifetimeSeconds) + "; HttpOnly; Secure; SameSite=Strict";
}

} // namespace vexo::face
