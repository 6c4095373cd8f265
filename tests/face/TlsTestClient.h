#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "FaceTestClient.h"

// Blocking HTTPS and secure WebSocket clients for the network listener's tests, like those
// of FaceTestClient.h: they trust any certificate (the server's is self-signed), give up
// after a generous deadline and report failures as values.
namespace vexo::face::testing {

// One request on a fresh TLS connection to `address`:`port`. Host is `address:port`
// unless the call gives one.
HttpReply httpsRequest(const std::string& address, std::uint16_t port, const HttpCall& call);

// A page's stream over TLS.
class TlsStreamClient {
public:
    TlsStreamClient();
    ~TlsStreamClient();
    TlsStreamClient(const TlsStreamClient&) = delete;
    TlsStreamClient& operator=(const TlsStreamClient&) = delete;

    // Opens /api/stream with `headers` (Origin, Cookie...). The HTTP status of the
    // handshake's answer: 101 when the stream is open, 0 when no answer came.
    int connect(const std::string& address, std::uint16_t port, const std::map<std::string, std::string>& headers);
    // The next text message, or nothing when the stream closed (or nothing came in time).
    std::optional<std::string> read();

private:
    struct State;
    State* m_state;
};

} // namespace vexo::face::testing
