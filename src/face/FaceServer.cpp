#include "face/FaceServer.h"

#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <map>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>

#include "face/JsonText.h"
#include "face/NetworkAccess.h"
#include "face/Outbox.h"
#include "face/StaticFiles.h"
#include "face/WatchFace.h"
#include "platform/log/Log.h"
#include "platform/watchkit/ImageData.h"

namespace vexo::face {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;
using PlainStream = beast::tcp_stream;
using TlsStream = beast::ssl_stream<beast::tcp_stream>;

namespace {

constexpr std::string_view kComponent = "face";
constexpr std::string_view kServerName = "vexo-watch";

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

// The names under which a page reaches us: only loopback ones, with our port.
bool isOurAuthority(std::string_view authority, std::uint16_t port) {
    std::string suffix = ":" + std::to_string(port);
    if (authority.size() <= suffix.size() || authority.substr(authority.size() - suffix.size()) != suffix)
        return false;
    std::string_view host = authority.substr(0, authority.size() - suffix.size());
    return host == "127.0.0.1" || equalsIgnoringCase(host, "localhost");
}

bool hostAllowed(const Request& request, std::uint16_t port) {
    auto host = request.find(http::field::host);
    // Browsers always send Host; a local program that does not is not a page of another site.
    return host == request.end() || isOurAuthority(host->value(), port);
}

bool originAllowed(const Request& request, std::uint16_t port) {
    auto origin = request.find(http::field::origin);
    if (origin == request.end())
        return true;
    std::string_view value = origin->value();
    constexpr std::string_view scheme = "http://";
    return value.substr(0, scheme.size()) == scheme && isOurAuthority(value.substr(scheme.size()), port);
}

Response makeResponse(http::status status, unsigned version, bool keepAlive, std::string contentType,
                      std::string body) {
    Response response{status, version};
    response.set(http::field::server, kServerName);
    response.set(http::field::content_type, contentType);
    response.set(http::field::cache_control, "no-store");
    response.set("X-Content-Type-Options", "nosniff");
    response.set("X-Frame-Options", "DENY");
    response.set("Referrer-Policy", "no-referrer");
    response.keep_alive(keepAlive);
    response.body() = std::move(body);
    response.prepare_payload();
    return response;
}

Response jsonError(http::status status, unsigned version, bool keepAlive, const std::string& reason) {
    return makeResponse(status, version, keepAlive, "application/json",
                        WatchFace::dump({{"ok", false}, {"error", reason}}));
}

bool isNetworkManagementPath(std::string_view path) {
    return path == "/api/network" || path.starts_with("/api/network/");
}

NetworkAccess::RequestHead headOf(const Request& request, std::string_view path) {
    auto field = [&request](http::field name) -> std::optional<std::string_view> {
        auto found = request.find(name);
        if (found == request.end())
            return std::nullopt;
        return found->value();
    };
    return {request.method_string(),        path,
            field(http::field::host),       field(http::field::origin),
            field(http::field::cookie),     field(http::field::user_agent),
            websocket::is_upgrade(request), request.body()};
}

Response responseOf(NetworkAccess::Reply reply, unsigned version, bool keepAlive) {
    Response response = makeResponse(static_cast<http::status>(reply.status), version, keepAlive,
                                     std::move(reply.contentType), std::move(reply.body));
    for (auto& [name, value] : reply.headers)
        response.set(name, value);
    return response;
}

} // namespace

// What the server keeps of a session that waits for the main loop's answer.
class ParkedSession {
public:
    virtual ~ParkedSession() = default;
    virtual void sendBody(Response response, bool head) = 0;
};

// What the server keeps of an open stream.
class StreamSink {
public:
    virtual ~StreamSink() = default;
    virtual void send(const WatchFace::Message& message) = 0;
    // Closes the stream when it was opened with a device token that is no longer valid.
    virtual void closeIfRevoked(const NetworkAccess& access) = 0;
};

class FaceServer::Core {
public:
    Core(WatchFace& face, std::filesystem::path webRoot)
        : face(face),
          files(std::move(webRoot)),
          acceptor(context),
          retryTimer(context),
          networkAcceptor(context),
          revocationTimer(context) {}

    // Runs on the server's thread; an exception out of a handler is logged, and serving goes on.
    void run() {
        for (;;) {
            try {
                context.run();
                return;
            } catch (const std::exception& exception) {
                log::error(kComponent, std::string("server: ") + exception.what());
            }
        }
    }

    void accept();
    void acceptNetwork();
    void watchRevocations();
    void closeRevokedStreams();
    void broadcast(const WatchFace::Message& message);
    // Hands `work` to the server's thread. Main loop only (or the server's thread).
    static void onServerThread(const std::weak_ptr<Core>& weak, std::function<void(Core&)> work) {
        if (auto core = weak.lock())
            net::post(core->context, [raw = core.get(), work = std::move(work)] { work(*raw); });
    }

    // Declared first: destroyed last, after everything that uses it.
    net::io_context context{1};
    WatchFace& face;
    StaticFiles files;
    tcp::acceptor acceptor;
    net::steady_timer retryTimer;
    std::uint16_t port = 0;
    std::thread thread;
    // Connections open now; shared with the sessions, which may outlive this object's fields.
    std::shared_ptr<std::atomic<std::size_t>> connections = std::make_shared<std::atomic<std::size_t>>(0);
    std::weak_ptr<Core> self;

    // The network listener's, when there is one.
    net::ssl::context tls{net::ssl::context::tls_server};
    tcp::acceptor networkAcceptor;
    net::steady_timer revocationTimer;
    std::uint16_t networkPort = 0;

    // Server thread only.
    std::uint64_t nextId = 1;
    // Sessions that wait for an answer from the main loop.
    std::map<std::uint64_t, std::shared_ptr<ParkedSession>> parked;
    std::map<std::uint64_t, std::weak_ptr<StreamSink>> streams;
    std::unique_ptr<NetworkAccess> network;
};

namespace {

// Counts one open connection for as long as it lives.
class ConnectionToken {
public:
    explicit ConnectionToken(std::shared_ptr<std::atomic<std::size_t>> counter)
        : m_counter(std::move(counter)) {
        ++*m_counter;
    }
    ~ConnectionToken() { --*m_counter; }
    ConnectionToken(const ConnectionToken&) = delete;
    ConnectionToken& operator=(const ConnectionToken&) = delete;

private:
    std::shared_ptr<std::atomic<std::size_t>> m_counter;
};

} // namespace

// One WebSocket page: the stream messages out, events in. `tokenHash` names the device
// token that opened a stream from the network (empty on loopback).
template <class Stream>
class StreamSession : public StreamSink, public std::enable_shared_from_this<StreamSession<Stream>> {
public:
    StreamSession(FaceServer::Core& core, Stream stream, std::unique_ptr<ConnectionToken> token, std::string tokenHash)
        : m_core(core),
          m_socket(std::move(stream)),
          m_token(std::move(token)),
          m_id(core.nextId++),
          m_tokenHash(std::move(tokenHash)) {}

    void closeIfRevoked(const NetworkAccess& access) override {
        if (m_tokenHash.empty() || m_closed || access.tokenValid(m_tokenHash))
            return;
        log::info(kComponent, "closing the stream of a revoked device");
        m_closed = true;
        beast::error_code ignored;
        beast::get_lowest_layer(m_socket).socket().close(ignored);
    }

    void accept(Request request) {
        beast::get_lowest_layer(m_socket).expires_never();
        m_socket.set_option(websocket::stream_base::timeout::suggested(beast::role_type::server));
        m_socket.set_option(websocket::stream_base::decorator(
            [](websocket::response_type& response) { response.set(http::field::server, kServerName); }));
        m_socket.read_message_max(FaceServer::kMaximumBodySize);
        m_socket.async_accept(request,
                              [self = this->shared_from_this()](beast::error_code error) { self->onAccept(error); });
    }

    void send(const WatchFace::Message& message) override {
        if (m_closed)
            return;
        if (!m_queue.push(message)) {
            log::warning(kComponent, "a page fell too far behind on the stream (" + std::to_string(m_queue.size()) +
                                         " messages, " + std::to_string(m_queue.bytes()) +
                                         " bytes unread); disconnecting it");
            m_closed = true;
            beast::error_code ignored;
            beast::get_lowest_layer(m_socket).socket().close(ignored);
            return;
        }
        if (!m_writing)
            write();
    }

private:
    void onAccept(beast::error_code error) {
        if (error) {
            log::debug(kComponent, "stream handshake failed: " + error.message());
            return;
        }
        std::weak_ptr<StreamSession> weak = this->weak_from_this();
        std::weak_ptr<FaceServer::Core> core = m_core.self;
        m_core.face.postWelcome([core, weak](std::vector<WatchFace::Message> messages) {
            FaceServer::Core::onServerThread(core, [weak, messages = std::move(messages)](FaceServer::Core& server) {
                auto session = weak.lock();
                if (!session)
                    return;
                for (const auto& message : messages)
                    session->send(message);
                server.streams[session->m_id] = session;
            });
        });
        read();
    }

    void read() {
        m_socket.async_read(
            m_buffer, [self = this->shared_from_this()](beast::error_code error, std::size_t) { self->onRead(error); });
    }

    void onRead(beast::error_code error) {
        if (error) {
            m_closed = true;
            if (error != websocket::error::closed && error != net::error::operation_aborted)
                log::debug(kComponent, "stream closed: " + error.message());
            return;
        }
        std::string text = beast::buffers_to_string(m_buffer.data());
        m_buffer.consume(m_buffer.size());
        // Results go back in the order of the events, the unreadable ones included.
        auto answer = [core = m_core.self, weak = this->weak_from_this()](WatchFace::Outcome outcome) {
            nlohmann::json message = {{"type", "result"}, {"status", outcome.status}};
            message.update(outcome.body);
            auto text = std::make_shared<const std::string>(WatchFace::dump(message));
            FaceServer::Core::onServerThread(core, [weak, text](FaceServer::Core&) {
                if (auto session = weak.lock())
                    session->send(text);
            });
        };
        if (std::optional<nlohmann::json> event = parseJsonText(text))
            m_core.face.postEvent(std::move(*event), std::move(answer));
        else
            m_core.face.postUnreadable("the message is not JSON", std::move(answer));
        read();
    }

    void write() {
        m_writing = true;
        m_socket.text(true);
        m_socket.async_write(
            net::buffer(*m_queue.front()),
            [self = this->shared_from_this()](beast::error_code error, std::size_t) { self->onWrite(error); });
    }

    void onWrite(beast::error_code error) {
        m_writing = false;
        if (error) {
            m_closed = true;
            return;
        }
        m_queue.pop();
        if (!m_queue.empty() && !m_closed)
            write();
    }

    FaceServer::Core& m_core;
    websocket::stream<Stream> m_socket;
    std::unique_ptr<ConnectionToken> m_token;
    std::uint64_t m_id;
    std::string m_tokenHash;
    beast::flat_buffer m_buffer;
    Outbox m_queue{{FaceServer::kMaximumQueuedMessages, FaceServer::kMaximumQueuedBytes}};
    bool m_writing = false;
    bool m_closed = false;
};

// One HTTP connection: requests in order, each answered before the next is read. One from
// the network (over TLS) passes NetworkAccess before anything else.
template <class Stream>
class HttpSession : public ParkedSession, public std::enable_shared_from_this<HttpSession<Stream>> {
public:
    HttpSession(FaceServer::Core& core, Stream stream, std::unique_ptr<ConnectionToken> token)
        : m_core(core),
          m_stream(std::move(stream)),
          m_token(std::move(token)),
          m_id(core.nextId++) {}

    static constexpr bool kFromNetwork = std::is_same_v<Stream, TlsStream>;

    void start() { read(); }

    // Sends the answer that the main loop gave while we were parked.
    void resume(Response response) { send(std::move(response)); }

private:
    void read() {
        m_parser.emplace();
        m_parser->header_limit(FaceServer::kMaximumHeaderSize);
        m_parser->body_limit(FaceServer::kMaximumBodySize);
        beast::get_lowest_layer(m_stream).expires_after(std::chrono::seconds(FaceServer::kIdleTimeoutSeconds));
        http::async_read(
            m_stream, m_buffer, *m_parser,
            [self = this->shared_from_this()](beast::error_code error, std::size_t) { self->onRead(error); });
    }

    void onRead(beast::error_code error) {
        if (error == http::error::header_limit) {
            send(jsonError(http::status::request_header_fields_too_large, 11, false, "the request head is too large"));
            return;
        }
        if (error == http::error::body_limit) {
            send(jsonError(http::status::payload_too_large, 11, false,
                           "the request body is larger than " + std::to_string(FaceServer::kMaximumBodySize) +
                               " bytes"));
            return;
        }
        if (error) {
            if (error != http::error::end_of_stream && error != beast::error::timeout)
                log::debug(kComponent, "request not read: " + error.message());
            beast::error_code ignored;
            beast::get_lowest_layer(m_stream).socket().shutdown(tcp::socket::shutdown_send, ignored);
            return;
        }
        handle(m_parser->release());
    }

    void handle(Request request) {
        const unsigned version = request.version();
        const bool keepAlive = request.keep_alive();
        const std::uint16_t port = m_core.port;
        std::string_view target = request.target();
        std::string_view path = target.substr(0, target.find_first_of("?#"));

        std::string tokenHash;
        if constexpr (kFromNetwork) {
            std::optional<std::string> admitted = admitFromNetwork(request, path);
            if (!admitted)
                return;
            tokenHash = std::move(*admitted);
        } else {
            if (!hostAllowed(request, port)) {
                send(jsonError(http::status::forbidden, version, false,
                               "this server answers only to 127.0.0.1:" + std::to_string(port)));
                return;
            }
            if (isNetworkManagementPath(path)) {
                answerNetworkManagement(request, path);
                return;
            }
        }
        if (websocket::is_upgrade(request)) {
            if (path != "/api/stream") {
                send(jsonError(http::status::not_found, version, false, "no WebSocket at " + std::string(path)));
            } else if (!kFromNetwork && !originAllowed(request, port)) {
                log::info(kComponent, "refused a stream from origin " + std::string(request[http::field::origin]));
                send(jsonError(http::status::forbidden, version, false, "the stream is only for pages of this server"));
            } else {
                auto session = std::make_shared<StreamSession<Stream>>(m_core, std::move(m_stream), std::move(m_token),
                                                                       std::move(tokenHash));
                session->accept(std::move(request));
            }
            return;
        }

        const http::verb method = request.method();
        const bool head = method == http::verb::head;
        auto onlyMethods = [&](std::initializer_list<http::verb> allowed, std::string_view allowHeader) {
            for (http::verb verb : allowed) {
                if (verb == method)
                    return true;
            }
            Response response = jsonError(http::status::method_not_allowed, version, keepAlive,
                                          "use " + std::string(allowHeader) + " on " + std::string(path));
            response.set(http::field::allow, allowHeader);
            send(std::move(response));
            return false;
        };
        auto readOnly = [&] { return onlyMethods({http::verb::get, http::verb::head}, "GET, HEAD"); };

        if (path == "/api/stream") {
            if (readOnly())
                send(jsonError(http::status::upgrade_required, version, keepAlive, "/api/stream is a WebSocket"));
        } else if (path == "/api/snapshot" || path == "/api/log") {
            if (!readOnly())
                return;
            park();
            auto answer = [core = m_core.self, id = m_id, version, keepAlive, head](std::string body) {
                Response response =
                    makeResponse(http::status::ok, version, keepAlive, "application/json", std::move(body));
                deliver(core, id, std::move(response), head);
            };
            if (path == "/api/snapshot")
                m_core.face.postSnapshot(std::move(answer));
            else
                m_core.face.postLog(std::move(answer));
        } else if (path == "/api/events") {
            if (!onlyMethods({http::verb::post}, "POST"))
                return;
            if (!kFromNetwork && !originAllowed(request, port)) {
                send(
                    jsonError(http::status::forbidden, version, keepAlive, "events are only for pages of this server"));
                return;
            }
            std::optional<nlohmann::json> event = parseJsonText(request.body());
            if (!event) {
                send(jsonError(http::status::bad_request, version, keepAlive, "the body is not JSON"));
                return;
            }
            park();
            m_core.face.postEvent(
                std::move(*event), [core = m_core.self, id = m_id, version, keepAlive](WatchFace::Outcome outcome) {
                    Response response = makeResponse(static_cast<http::status>(outcome.status), version, keepAlive,
                                                     "application/json", WatchFace::dump(outcome.body));
                    deliver(core, id, std::move(response), false);
                });
        } else if (path.starts_with("/api/images/")) {
            if (!readOnly())
                return;
            auto image = m_core.face.imageWithId(path.substr(std::string_view("/api/images/").size()));
            if (!image) {
                send(jsonError(http::status::not_found, version, keepAlive, "no image " + std::string(path)));
                return;
            }
            Response response = makeResponse(http::status::ok, version, keepAlive, image->mediaType,
                                             std::string(image->bytes.begin(), image->bytes.end()));
            // An image's identifier is the hash of its bytes: it never changes.
            response.set(http::field::cache_control, "public, max-age=31536000, immutable");
            sendBody(std::move(response), head);
        } else if (path.starts_with("/assets/")) {
            if (!readOnly())
                return;
            std::optional<std::string> name =
                StaticFiles::percentDecode(path.substr(std::string_view("/assets/").size()));
            std::optional<std::vector<std::uint8_t>> bytes = name ? m_core.face.assetNamed(*name) : std::nullopt;
            if (!bytes) {
                send(jsonError(http::status::not_found, version, keepAlive, "no asset " + std::string(path)));
                return;
            }
            Response response = makeResponse(http::status::ok, version, keepAlive, "image/png",
                                             std::string(bytes->begin(), bytes->end()));
            response.set(http::field::cache_control, "public, max-age=3600");
            sendBody(std::move(response), head);
        } else if (path.starts_with("/api/")) {
            send(jsonError(http::status::not_found, version, keepAlive, "no such interface: " + std::string(path)));
        } else {
            if (!readOnly())
                return;
            StaticFiles::Result file = m_core.files.find(path);
            switch (file.status) {
            case StaticFiles::Status::Found:
                sendBody(makeResponse(http::status::ok, version, keepAlive, file.contentType, std::move(file.body)),
                         head);
                break;
            case StaticFiles::Status::NotFound:
                send(makeResponse(http::status::not_found, version, keepAlive, "text/plain; charset=utf-8",
                                  "not found\n"));
                break;
            case StaticFiles::Status::Forbidden:
                send(makeResponse(http::status::forbidden, version, keepAlive, "text/plain; charset=utf-8",
                                  "outside the web root\n"));
                break;
            case StaticFiles::Status::TooLarge:
                send(makeResponse(http::status::internal_server_error, version, keepAlive, "text/plain; charset=utf-8",
                                  "file too large to serve\n"));
                break;
            }
        }
    }

    // The hash of the token that admits a request from the network (empty for a file that
    // needs none), or nothing when NetworkAccess answered it itself.
    std::optional<std::string> admitFromNetwork(const Request& request, std::string_view path) {
        NetworkAccess::Verdict verdict = m_core.network->screen(headOf(request, path), NetworkAccess::Clock::now());
        if (!verdict.reply)
            return std::move(verdict.tokenHash);
        const int status = verdict.reply->status;
        send(responseOf(std::move(*verdict.reply), request.version(), request.keep_alive() && status < 403));
        return std::nullopt;
    }

    void answerNetworkManagement(const Request& request, std::string_view path) {
        const bool head = request.method() == http::verb::head;
        std::optional<NetworkAccess::Reply> reply;
        if (m_core.network) {
            reply = m_core.network->answerLocal(headOf(request, path), originAllowed(request, m_core.port),
                                                NetworkAccess::Clock::now());
            // A device revoked here loses its open streams now, not at the next look at the file.
            m_core.closeRevokedStreams();
        } else if (path == "/api/network") {
            reply = NetworkAccess::Reply{200, "application/json", R"({"enabled":false})", {}};
        }
        if (!reply)
            reply = NetworkAccess::Reply{
                404,
                "application/json",
                WatchFace::dump({{"ok", false}, {"error", "no such interface: " + std::string(path)}}),
                {}};
        sendBody(responseOf(std::move(*reply), request.version(), request.keep_alive()), head);
    }

    // Keeps this session alive while the main loop works on its request.
    void park() { m_core.parked[m_id] = this->shared_from_this(); }

    // From the main loop: the answer for parked session `id`.
    static void deliver(const std::weak_ptr<FaceServer::Core>& core, std::uint64_t id, Response response, bool head) {
        auto shared = std::make_shared<Response>(std::move(response));
        FaceServer::Core::onServerThread(core, [id, shared, head](FaceServer::Core& server) {
            auto found = server.parked.find(id);
            if (found == server.parked.end())
                return;
            std::shared_ptr<ParkedSession> session = std::move(found->second);
            server.parked.erase(found);
            session->sendBody(std::move(*shared), head);
        });
    }

    // A HEAD request gets the head of the response that GET would get.
    void sendBody(Response response, bool head) override {
        if (head) {
            auto length = response.body().size();
            response.body().clear();
            response.content_length(length);
        }
        send(std::move(response));
    }

    void send(Response response) {
        auto shared = std::make_shared<Response>(std::move(response));
        beast::get_lowest_layer(m_stream).expires_after(std::chrono::seconds(FaceServer::kIdleTimeoutSeconds));
        http::async_write(m_stream, *shared,
                          [self = this->shared_from_this(), shared](beast::error_code error, std::size_t) {
                              self->onWrite(error, shared->need_eof());
                          });
    }

    void onWrite(beast::error_code error, bool close) {
        if (error)
            return;
        if (close) {
            beast::error_code ignored;
            beast::get_lowest_layer(m_stream).socket().shutdown(tcp::socket::shutdown_send, ignored);
            // Closing with unread bytes would reset the connection, and the client could lose
            // our answer (a refused oversized request, for one): read what it still sends first.
            beast::get_lowest_layer(m_stream).expires_after(std::chrono::seconds(5));
            discard(kLingerBytes);
            return;
        }
        read();
    }

    static constexpr std::size_t kLingerBytes = std::size_t{1} << 20;

    void discard(std::size_t budget) {
        auto chunk = std::make_shared<std::array<char, 16384>>();
        m_stream.async_read_some(net::buffer(*chunk), [self = this->shared_from_this(), chunk,
                                                       budget](beast::error_code error, std::size_t read) {
            if (!error && read < budget)
                self->discard(budget - read);
        });
    }

    FaceServer::Core& m_core;
    Stream m_stream;
    std::unique_ptr<ConnectionToken> m_token;
    std::uint64_t m_id;
    beast::flat_buffer m_buffer;
    std::optional<http::request_parser<http::string_body>> m_parser;
};

void FaceServer::Core::accept() {
    acceptor.async_accept([this](beast::error_code error, tcp::socket socket) {
        if (error == net::error::operation_aborted || !acceptor.is_open())
            return;
        if (error) {
            // Out of descriptors, for one: wait a little rather than spin.
            log::warning(kComponent, "accept failed: " + error.message());
            retryTimer.expires_after(std::chrono::milliseconds(100));
            retryTimer.async_wait([this](beast::error_code waitError) {
                if (!waitError)
                    accept();
            });
            return;
        }
        if (*connections >= FaceServer::kMaximumConnections) {
            log::warning(kComponent, "too many connections; one refused");
            beast::error_code ignored;
            socket.close(ignored);
        } else {
            // A tap's answer leaves as several small messages; without this, each after the
            // first waits for the browser's delayed acknowledgement (about 40 ms).
            beast::error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            std::make_shared<HttpSession<PlainStream>>(*this, PlainStream(std::move(socket)),
                                                       std::make_unique<ConnectionToken>(connections))
                ->start();
        }
        accept();
    });
}

void FaceServer::Core::acceptNetwork() {
    networkAcceptor.async_accept([this](beast::error_code error, tcp::socket socket) {
        if (error == net::error::operation_aborted || !networkAcceptor.is_open())
            return;
        if (error) {
            log::warning(kComponent, "accept failed on the network: " + error.message());
        } else if (*connections >= FaceServer::kMaximumConnections) {
            log::warning(kComponent, "too many connections; one from the network refused");
            beast::error_code ignored;
            socket.close(ignored);
        } else {
            beast::error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            auto token = std::make_unique<ConnectionToken>(connections);
            auto stream = std::make_shared<TlsStream>(std::move(socket), tls);
            // A client that never finishes its handshake holds a connection only this long.
            beast::get_lowest_layer(*stream).expires_after(std::chrono::seconds(10));
            stream->async_handshake(net::ssl::stream_base::server, [this, stream, token = std::move(token)](
                                                                       beast::error_code handshakeError) mutable {
                if (handshakeError) {
                    log::debug(kComponent, "TLS handshake failed: " + handshakeError.message());
                    return;
                }
                std::make_shared<HttpSession<TlsStream>>(*this, std::move(*stream), std::move(token))->start();
            });
        }
        acceptNetwork();
    });
}

void FaceServer::Core::watchRevocations() {
    revocationTimer.expires_after(std::chrono::milliseconds(FaceServer::kRevocationCheckMilliseconds));
    revocationTimer.async_wait([this](beast::error_code error) {
        if (error)
            return;
        // `vexo-watch revoke` changes the file from another process.
        if (network->refreshDevices())
            closeRevokedStreams();
        watchRevocations();
    });
}

void FaceServer::Core::closeRevokedStreams() {
    for (auto& [id, weak] : streams) {
        if (auto session = weak.lock())
            session->closeIfRevoked(*network);
    }
}

void FaceServer::Core::broadcast(const WatchFace::Message& message) {
    for (auto it = streams.begin(); it != streams.end();) {
        if (auto session = it->second.lock()) {
            session->send(message);
            ++it;
        } else {
            it = streams.erase(it);
        }
    }
}

FaceServer::FaceServer(WatchFace& face, Options options, std::optional<NetworkOptions> network)
    : m_face(face),
      m_options(std::move(options)),
      m_network(std::move(network)) {}

FaceServer::~FaceServer() {
    stop();
}

std::uint16_t FaceServer::port() const {
    return m_core ? m_core->port : 0;
}

std::string FaceServer::networkUrl() const {
    return m_core && m_core->network ? m_core->network->url() : std::string();
}

std::string FaceServer::networkFingerprint() const {
    return m_core && m_core->network ? m_core->network->certificate().fingerprint() : std::string();
}

namespace {

// Binds the network listener of `core` as `network` says and prepares what it serves with.
std::optional<std::string> startNetwork(FaceServer::Core& core, const FaceServer::NetworkOptions& network,
                                        const std::filesystem::path& webRoot) {
    std::string error;
    std::optional<TlsCertificate> certificate = TlsCertificate::loadOrCreate(network.folder, error);
    if (!certificate)
        return "no certificate for the network listener: " + error;
    beast::error_code failure;
    net::ip::address address = net::ip::make_address(network.listenAddress, failure);
    if (failure)
        return "'" + network.listenAddress + "' is not an IP address to listen on";
    core.tls.set_options(net::ssl::context::default_workarounds | net::ssl::context::no_sslv2 |
                         net::ssl::context::no_sslv3 | net::ssl::context::no_tlsv1 | net::ssl::context::no_tlsv1_1);
    core.tls.use_certificate_chain(net::buffer(certificate->certificatePem()), failure);
    if (!failure)
        core.tls.use_private_key(net::buffer(certificate->privateKeyPem()), net::ssl::context::pem, failure);
    if (failure)
        return "the network certificate cannot be used: " + failure.message();
    tcp::endpoint endpoint(address, network.port);
    const std::string where = network.listenAddress + ":" + std::to_string(network.port);
    core.networkAcceptor.open(endpoint.protocol(), failure);
    if (!failure)
        core.networkAcceptor.set_option(net::socket_base::reuse_address(true), failure);
    if (!failure)
        core.networkAcceptor.bind(endpoint, failure);
    if (failure == net::error::address_in_use)
        return "port " + std::to_string(network.port) + " on " + network.listenAddress +
               " is in use; stop what uses it or choose another with --lan-port";
    if (!failure)
        core.networkAcceptor.listen(net::socket_base::max_listen_connections, failure);
    if (failure)
        return "cannot listen on " + where + ": " + failure.message();
    core.networkPort = core.networkAcceptor.local_endpoint(failure).port();

    const bool v6 = network.advertisedAddress.find(':') != std::string::npos;
    const std::string advertised = v6 ? "[" + network.advertisedAddress + "]" : network.advertisedAddress;
    std::set<std::string> hosts = network.hosts;
    hosts.insert(advertised);
    if (!address.is_unspecified())
        hosts.insert(address.is_v6() ? "[" + network.listenAddress + "]" : network.listenAddress);
    std::string url = "https://" + advertised + ":" + std::to_string(core.networkPort) + "/";
    core.network =
        std::make_unique<NetworkAccess>(network.folder, std::move(*certificate),
                                        RequestGuard(std::move(hosts), core.networkPort), std::move(url), webRoot);
    core.acceptNetwork();
    core.watchRevocations();
    return std::nullopt;
}

} // namespace

std::optional<std::string> FaceServer::start() {
    if (m_core)
        return "the face server is started already";
    auto core = std::make_shared<Core>(m_face, m_options.webRoot);
    core->self = core;
    tcp::endpoint endpoint(net::ip::address_v4::loopback(), m_options.port);
    beast::error_code error;
    core->acceptor.open(endpoint.protocol(), error);
    if (!error)
        core->acceptor.set_option(net::socket_base::reuse_address(true), error);
    if (!error)
        core->acceptor.bind(endpoint, error);
    if (error == net::error::address_in_use)
        return "port " + std::to_string(m_options.port) +
               " on 127.0.0.1 is in use; stop what uses it or choose another with --port";
    if (!error)
        core->acceptor.listen(net::socket_base::max_listen_connections, error);
    if (error)
        return "cannot listen on 127.0.0.1:" + std::to_string(m_options.port) + ": " + error.message();
    core->port = core->acceptor.local_endpoint(error).port();
    if (m_network) {
        if (std::optional<std::string> failed = startNetwork(*core, *m_network, m_options.webRoot))
            return failed;
    }

    m_face.setPublisher([weak = std::weak_ptr<Core>(core)](const WatchFace::Message& message) {
        Core::onServerThread(weak, [message](Core& server) { server.broadcast(message); });
    });
    core->accept();
    core->thread = std::thread([raw = core.get()] { raw->run(); });
    m_core = std::move(core);
    return std::nullopt;
}

void FaceServer::stop() {
    if (!m_core)
        return;
    m_face.setPublisher({});
    m_core->context.stop();
    if (m_core->thread.joinable())
        m_core->thread.join();
    m_core->parked.clear();
    m_core->streams.clear();
    m_core.reset();
}

} // namespace vexo::face
