#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>

// The watch face over HTTP and WebSocket on 127.0.0.1 (Boost.Beast), on a thread of its own;
// everything that touches the watch goes through WatchFace's thread-safe calls. Opted in, the
// same face over HTTPS on a network address for paired devices (see NetworkAccess.h for what
// that listener lets through, and the management interface under /api/network).
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
    static constexpr std::uint16_t kDefaultNetworkPort = 8421;
    // How often the paired devices file is looked at: a device revoked by another process
    // loses its open streams within this time.
    static constexpr int kRevocationCheckMilliseconds = 200;
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

    // The network listener, when wanted.
    struct NetworkOptions {
        // The address bound ("0.0.0.0" for every IPv4 interface) and the one that the
        // pairing address names.
        std::string listenAddress;
        std::string advertisedAddress;
        // 0 picks a free port.
        std::uint16_t port = kDefaultNetworkPort;
        // Holds the certificate, the paired devices and the pairing codes.
        std::filesystem::path folder;
        // Names and addresses of this machine that pages may use (see RequestGuard).
        std::set<std::string> hosts;
    };

    // REQUIRES: `face` outlives the server. Made, started, stopped and destroyed on the
    // main loop's thread.
    FaceServer(WatchFace& face, Options options, std::optional<NetworkOptions> network = std::nullopt);
    // Stops the server.
    ~FaceServer();
    FaceServer(const FaceServer&) = delete;
    FaceServer& operator=(const FaceServer&) = delete;

    // Binds 127.0.0.1 and starts serving. Nothing on success; otherwise one line saying why
    // (the port in use, for one).
    [[nodiscard]] std::optional<std::string> start();

    // The port bound; 0 before start().
    [[nodiscard]] std::uint16_t port() const;

    // With a network listener, after start(): the address that devices open
    // ("https://ADDR:PORT/") and the SHA-256 fingerprint of its certificate; empty otherwise.
    [[nodiscard]] std::string networkUrl() const;
    [[nodiscard]] std::string networkFingerprint() const;

    // Closes every connection and joins the server's thread. Idempotent.
    void stop();

    // The server's state, shared with its sessions; defined where they are.
    class Core;

private:
    WatchFace& m_face;
    Options m_options;
    std::optional<NetworkOptions> m_network;
    std::shared_ptr<Core> m_core;
};

} // namespace vexo::face
