#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// Blocking HTTP and WebSocket clients for the face server's tests. They run on a thread of
// the test while the main loop runs on the test's own; every call gives up after a
// generous deadline rather than hang, and reports failures as values.
namespace vexo::face::testing {

struct HttpReply {
    int status = 0; // 0 when no answer came
    std::string body;
    std::map<std::string, std::string> headers; // names in lower case
};

struct HttpCall {
    std::string method = "GET";
    std::string target = "/";
    std::string body;
    std::map<std::string, std::string> headers; // Host is 127.0.0.1:<port> unless given
};

// One request on a fresh connection to 127.0.0.1:`port`.
HttpReply httpRequest(std::uint16_t port, const HttpCall& call);

// A WebSocket page of the face: connect(), then read and write text messages.
class StreamClient {
public:
    StreamClient();
    ~StreamClient();
    StreamClient(const StreamClient&) = delete;
    StreamClient& operator=(const StreamClient&) = delete;

    // Opens /api/stream with `origin` (none when empty). False, with the reason in error(),
    // when the handshake fails.
    bool connect(std::uint16_t port, const std::string& origin);
    // The next text message, or nothing when the stream closed or nothing came in time.
    std::optional<std::string> read();
    bool write(const std::string& text);
    [[nodiscard]] const std::string& error() const { return m_error; }

private:
    struct State;
    State* m_state;
    std::string m_error;
};

} // namespace vexo::face::testing
