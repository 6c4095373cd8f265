#pragma once

#include <cctype>
#include <chrono>
#include <optional>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include "FaceTestClient.h"

// The blocking steps that the plain and the TLS test clients share, written once over the
// stream type (a beast::tcp_stream, or an ssl_stream or websocket::stream over one). Only for
// the clients' own sources: the tests use FaceTestClient.h and TlsTestClient.h.
namespace vexo::face::testing::exchange {

// Far beyond any answer on a loaded machine; it only keeps a broken server from hanging a test.
inline constexpr auto kDeadline = std::chrono::seconds(60);

// Runs one asynchronous operation to its end; the stream's expiry bounds it.
template <class Start> boost::beast::error_code complete(boost::asio::io_context& context, Start start) {
    boost::beast::error_code result = boost::asio::error::timed_out;
    start([&result](boost::beast::error_code error, auto&&...) { result = error; });
    context.restart();
    context.run();
    return result;
}

// Sends `call` on the connected `stream` with `host` as Host unless the call names one, and
// reads the answer; a reply with status 0 when either step fails.
template <class Stream>
HttpReply request(boost::asio::io_context& context, Stream& stream, const std::string& host, const HttpCall& call) {
    namespace http = boost::beast::http;
    HttpReply reply;
    http::request<http::string_body> request{http::string_to_verb(call.method), call.target, 11};
    request.set(http::field::host, host);
    for (const auto& [name, value] : call.headers)
        request.set(name, value);
    request.body() = call.body;
    request.prepare_payload();
    if (complete(context, [&](auto handler) { http::async_write(stream, request, handler); }))
        return reply;
    boost::beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    parser.body_limit(64 << 20);
    if (call.method == "HEAD")
        parser.skip(true);
    if (complete(context, [&](auto handler) { http::async_read(stream, buffer, parser, handler); }))
        return reply;
    auto response = parser.release();
    reply.status = static_cast<int>(response.result_int());
    reply.body = response.body();
    for (const auto& field : response) {
        std::string name(field.name_string());
        for (char& c : name)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        reply.headers[name] = std::string(field.value());
    }
    return reply;
}

// The next message on the open WebSocket `socket`, into `buffer`; nothing when it closed or
// nothing came in time, with the reason in `error`.
template <class Socket>
std::optional<std::string> readMessage(boost::asio::io_context& context, Socket& socket,
                                       boost::beast::flat_buffer& buffer, boost::beast::error_code& error) {
    boost::beast::get_lowest_layer(socket).expires_after(kDeadline);
    buffer.clear();
    error = complete(context, [&](auto handler) { socket.async_read(buffer, handler); });
    if (error)
        return std::nullopt;
    return boost::beast::buffers_to_string(buffer.data());
}

} // namespace vexo::face::testing::exchange
