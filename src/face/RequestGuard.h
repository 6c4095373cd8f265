#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

// Who may talk to the network listener, judged from a request's head before anything else:
// the Host it names (the machine's own names and addresses with the listener's port, so a
// name of another site that resolves to us, as in DNS rebinding, is refused), the Origin of a
// POST or WebSocket upgrade (only https pages of those same names, so another site's page
// cannot drive the face with the device's cookie), and the device token in the cookie.
// Immutable after construction; thread-safe.
namespace vexo::face {

class RequestGuard {
public:
    // The cookie that carries a device's token.
    static constexpr std::string_view kTokenCookie = "vexo_device";

    // `hosts`: names and addresses (IPv6 ones in brackets) that reach this machine;
    // compared without regard to case.
    RequestGuard(std::set<std::string> hosts, std::uint16_t port);

    // A Host header naming one of the hosts with our port (the port may be left out only
    // when it is 443). A request without Host is refused: every browser sends it.
    [[nodiscard]] bool hostAllowed(std::optional<std::string_view> host) const;
    // No Origin (a program, not a page), or "https://" followed by an allowed Host.
    [[nodiscard]] bool originAllowed(std::optional<std::string_view> origin) const;

    // The value of cookie kTokenCookie in a Cookie header; empty when there is none.
    [[nodiscard]] static std::string_view tokenFromCookies(std::string_view cookieHeader);
    // The Set-Cookie value that hands `token` to a device: HttpOnly, Secure, SameSite=Strict.
    [[nodiscard]] static std::string tokenCookie(std::string_view token);

    [[nodiscard]] const std::set<std::string>& hosts() const { return m_hosts; }

private:
    std::set<std::string> m_hosts;
    std::uint16_t m_port;
};

} // namespace vexo::face
