#include "TlsTestClient.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "ClientExchange.h"

namespace vexo::face::testing {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using TlsStream = beast::ssl_stream<beast::tcp_stream>;

using exchange::complete;
using exchange::kDeadline;

namespace {

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
    net::io_context context;
    net::ssl::context tls = trustingContext();
    TlsStream stream(context, tls);
    if (!connectTls(context, stream, address, port))
        return {};
    return exchange::request(context, stream, address + ":" + std::to_string(port), call);
}

struct TlsStreamClient::State {
    net::io_context context;
    net::ssl::context tls = trustingContext();
    websocket::stream<TlsStream> socket{context, tls};
    beast::flat_buffer buffer;
};

TlsStreamClient::TlsStreamClient()
    : m_state(new State) {}

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
    beast::error_code error;
    return exchange::readMessage(m_state->context, m_state->socket, m_state->buffer, error);
}

} // namespace vexo::face::testing
