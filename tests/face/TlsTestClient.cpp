#include "TlsTestClient.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <cctype>
#include <chrono>

namespace vexo::face::testing {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using TlsStream = beast::ssl_stream<beast::tcp_stream>;

namespace {

constexpr auto kDeadline = std::chrono::seconds(60);

template <class Start> beast::error_code complete(net::io_context& context, Start start) {
    beast::error_code result = net::error::timed_out;
    start([&result](beast::error_code error, auto&&...) { result = error; });
    context.restart();
    context.run();
    return result;
}

std::string lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

net::ssl::context trustingContext() {
    net::ssl::context context(net::ssl::context::tls_client);
    context.set_verify_mode(net::ssl::verify_none);
    return context;
}

bool connectTls(net::io_context& context, TlsStream& stream, const std::string& address, std::uint16_t port) {
    beast::get_lowest_layer(stream).expires_after(kDeadline);
    tcp::endpoint endpoint(net::ip::make_address(address), port);
    if (complete(context, [&](auto handler) { beast::get_lowest_layer(stream).async_connect(endpoint, handler); }))
        return false;
    return !complete(context, [&](auto handler) { stream.async_handshake(net::ssl::stream_base::client, handler); });
}

} // namespace

HttpReply httpsRequest(const std::string& address, std::uint16_t port, const HttpCall& call) {
    HttpReply reply;
    net::io_context context;
    net::ssl::context tls = trustingContext();
    TlsStream stream(context, tls);
    if (!connectTls(context, stream, address, port))
        return reply;
    http::request<http::string_body> request{http::string_to_verb(call.method), call.target, 11};
    request.set(http::field::host, address + ":" + std::to_string(port));
    for (const auto& [name, value] : call.headers)
        request.set(name, value);
    request.body() = call.body;
    request.prepare_payload();
    if (complete(context, [&](auto handler) { http::async_write(stream, request, handler); }))
        return reply;
    beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    parser.body_limit(64 << 20);
    if (complete(context, [&](auto handler) { http::async_read(stream, buffer, parser, handler); }))
        return reply;
    auto response = parser.release();
    reply.status = static_cast<int>(response.result_int());
    reply.body = response.body();
    for (const auto& field : response)
        reply.headers[lower(std::string(field.name_string()))] = std::string(field.value());
    return reply;
}

struct TlsStreamClient::State {
    net::io_context context;
    net::ssl::context tls = trustingContext();
    websocket::stream<TlsStream> socket{context, tls};
    beast::flat_buffer buffer;
};

TlsStreamClient::TlsStreamClient() : m_state(new State) {}

TlsStreamClient::~TlsStreamClient() {
    delete m_state;
}

int TlsStreamClient::connect(const std::string& address, std::uint16_t port,
                             const std::map<std::string, std::string>& headers) {
    if (!connectTls(m_state->context, m_state->socket.next_layer(), address, port))
        return 0;
    m_state->socket.set_option(websocket::stream_base::decorator([headers](websocket::request_type& request) {
        for (const auto& [name, value] : headers)
            request.set(name, value);
    }));
    websocket::response_type response;
    std::string host = address + ":" + std::to_string(port);
    complete(m_state->context,
             [&](auto handler) { m_state->socket.async_handshake(response, host, "/api/stream", handler); });
    return static_cast<int>(response.result_int());
}

std::optional<std::string> TlsStreamClient::read() {
    beast::get_lowest_layer(m_state->socket).expires_after(kDeadline);
    m_state->buffer.clear();
    beast::error_code error =
        complete(m_state->context, [&](auto handler) { m_state->socket.async_read(m_state->buffer, handler); });
    if (error)
        return std::nullopt;
    return beast::buffers_to_string(m_state->buffer.data());
}

} // namespace vexo::face::testing
