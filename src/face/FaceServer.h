#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

// The watch face over HTTP and WebSocket on 127.0.0.1 (Boost.Beast), on a thread of its own;
// everything that touches the watch goes through WatchFace's thread-safe calls.
//
//   GET  /                    the face (index.html of the web root); other paths: its files
//   GET  /api/snapshot        the host's snapshot (application/json)
//   POST /api/events          one event (see WatchFace); 200, 400 (malformed), 409 (refused)
//   GET  /api/log             {"records": [...]}, the protocol log
//   GET  /api/images/<id>     image bytes a snapshot names, with their media type
//   GET  /assets/<name>       a named asset as PNG
//   GET  /api/stream          WebSocket: the stream messages of WatchFace; takes events
//
// Guards: a Host header other than 127.0.0.1:<port> or localhost:<port> is refused (403),
// so that no other site reaches the server through a name that resolves to us; so is an
// Origin other than http://127.0.0.1:<port> or http://localhost:<port> on a WebSocket
// upgrade or a POST (403). Request heads are at most kMaximumHeaderSize bytes (431), bodies
// and WebSocket messages at most kMaximumBodySize (413, or the stream closes); at most
// kMaximumConnections at once; an idle connection closes after kIdleTimeoutSeconds. A page
// that falls kMaximumQueuedMessages or kMaximumQueuedBytes behind on the stream is
// disconnected (it reconnects and starts again from a snapshot); the other pages never wait
// for it.
namespace vexo::face {

class WatchFace;

class FaceServer {
public:
    static constexpr std::uint16_t kDefaultPort = 8420;
    static constexpr std::size_t kMaximumHeaderSize = 8 * 1024;
    static constexpr std::size_t kMaximumBodySize = 64 * 1024;
    static constexpr std::size_t kMaximumConnections = 64;
    static constexpr int kIdleTimeoutSeconds = 60;
    static constexpr std::size_t kMaximumQueuedMessages = 4096;
    static constexpr std::size_t kMaximumQueuedBytes = 8 * 1024 * 1024;

    struct Options {
        // 0 picks a free port.
        std::uint16_t port = kDefaultPort;
        std::filesystem::path webRoot;
    };

    // REQUIRES: `face` outlives the server. Made, started, stopped and destroyed on the
    // main loop's thread.
    FaceServer(WatchFace& face, Options options);
    // Stops the server.
    ~FaceServer();
    FaceServer(const FaceServer&) = delete;
    FaceServer& operator=(const FaceServer&) = delete;

    // Binds 127.0.0.1 and starts serving. Nothing on success; otherwise one line saying why
    // (the port in use, for one).
    [[nodiscard]] std::optional<std::string> start();

    // The port bound; 0 before start().
    [[nodiscard]] std::uint16_t port() const;

    // Closes every connection and joins the server's thread. Idempotent.
    void stop();

    // The server's state, shared with its sessions; defined where they are.
    class Core;

private:
    WatchFace& m_face;
    Options m_options;
    std::shared_ptr<Core> m_core;
};

} // namespace vexo::face
