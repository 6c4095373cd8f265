#include "FaceTestClient.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include "ClientExchange.h"

namespace vexo::face::testing {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;

using exchange::complete;
using exchange::kDeadline;

HttpReply httpRequest(std::uint16_t port, const HttpCall& call) {
    net::io_context context;
    beast::tcp_stream stream(context);
    stream.expires_after(kDeadline);
    tcp::endpoint endpoint(net::ip::address_v4::loopback(), port);
    if (complete(context, [&](auto handler) { stream.async_connect(endpoint, handler); }))
        return {};
    return exchange::request(context, stream, "127.0.0.1:" + std::to_string(port), call);
}

struct StreamClient::State {
    net::io_context context;
    websocket::stream<beast::tcp_stream> socket{context};
    beast::flat_buffer buffer;
};

StreamClient::StreamClient()
    : m_state(new State) {}

StreamClient::~StreamClient() {
    delete m_state;
}

bool StreamClient::connect(std::uint16_t port, const std::string& origin) {
    auto& lowest = beast::get_lowest_layer(m_state->socket);
    lowest.expires_after(kDeadline);
    tcp::endpoint endpoint(net::ip::address_v4::loopback(), port);
    beast::error_code error =
        complete(m_state->context, [&](auto handler) { lowest.async_connect(endpoint, handler); });
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
    beast::error_code error;
    auto message = exchange::readMessage(m_state->context, m_state->socket, m_state->buffer, error);
    if (error)
        m_error = error.message();
    return message;
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
