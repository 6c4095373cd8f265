#include "FaceTestClient.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <cctype>
#include <chrono>

namespace vexo::face::testing {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;

namespace {

// Far beyond any answer on a loaded machine; it only keeps a broken server from hanging a test.
constexpr auto kDeadline = std::chrono::seconds(60);

// Runs one asynchronous operation to its end; the stream's expiry bounds it.
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

} // namespace

HttpReply httpRequest(std::uint16_t port, const HttpCall& call) {
    HttpReply reply;
    net::io_context context;
    beast::tcp_stream stream(context);
    stream.expires_after(kDeadline);
    tcp::endpoint endpoint(net::ip::address_v4::loopback(), port);
    if (complete(context, [&](auto handler) { stream.async_connect(endpoint, handler); }))
        return reply;
    {
        http::request<http::string_body> request{http::string_to_verb(call.method), call.target, 11};
        request.set(http::field::host, "127.0.0.1:" + std::to_string(port));
        for (const auto& [name, value] : call.headers)
            request.set(name, value);
        request.body() = call.body;
        request.prepare_payload();
        if (complete(context, [&](auto handler) { http::async_write(stream, request, handler); }))
            return reply;
        beast::flat_buffer buffer;
        http::response_parser<http::string_body> parser;
        parser.body_limit(64 << 20);
        if (call.method == "HEAD")
            parser.skip(true);
        if (complete(context, [&](auto handler) { http::async_read(stream, buffer, parser, handler); }))
            return reply;
        auto response = parser.release();
        reply.status = static_cast<int>(response.result_int());
        reply.body = response.body();
        for (const auto& field : response)
            reply.headers[lower(std::string(field.name_string()))] = std::string(field.value());
    }
    return reply;
}

struct StreamClient::State {
    net::io_context context;
    websocket::stream<beast::tcp_stream> socket{context};
    beast::flat_buffer buffer;
};

StreamClient::StreamClient() : m_state(new State) {}

StreamClient::~StreamClient() {
    delete m_state;
}

bool StreamClient::connect(std::uint16_t port, const std::string& origin) {
    auto& lowest = beast::get_lowest_layer(m_state->socket);
    lowest.expires_after(kDeadline);
    tcp::endpoint endpoint(net::ip::address_v4::loopback(), port);
    beast::error_code error = complete(m_state->context, [&](auto handler) { lowest.async_connect(endpoint, handler); });
    if (!error) {
        m_state->socket.set_option(websocket::stream_base::decorator([origin](websocket::request_type& request) {
            if (!origin.empty())
                request.set(http::field::origin, origin);
        }));
        std::string host = "127.0.0.1:" + std::to_string(port);
        error = complete(m_state->context,
                         [&](auto handler) { m_state->socket.async_handshake(host, "/api/stream", handler); });
    }
    m_error = error ? error.message() : "";
    return !error;
}

std::optional<std::string> StreamClient::read() {
    beast::get_lowest_layer(m_state->socket).expires_after(kDeadline);
    m_state->buffer.clear();
    beast::error_code error =
        complete(m_state->context, [&](auto handler) { m_state->socket.async_read(m_state->buffer, handler); });
    if (error) {
        m_error = error.message();
        return std::nullopt;
    }
    return beast::buffers_to_string(m_state->buffer.data());
}

bool StreamClient::write(const std::string& text) {
    beast::get_lowest_layer(m_state->socket).expires_after(kDeadline);
    m_state->socket.text(true);
    beast::error_code error =
        complete(m_state->context, [&](auto handler) { m_state->socket.async_write(net::buffer(text), handler); });
    m_error = error ? error.message() : "";
    return !error;
}

} // namespace vexo::face::testing
