#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

// The stream messages waiting to be written to one page, bounded both in count and in bytes.
// A page that stops reading (a frozen tab, a program that never reads) would otherwise keep
// every change since in memory; past either bound it is too far behind to catch up, and the
// caller drops it (a page that reconnects starts again from a snapshot).
//
// Messages are shared, immutable texts: one broadcast is held once however many pages wait
// for it, but each outbox counts its full size, since a slow page is what keeps it alive.
// Not thread-safe: the server's thread only.
namespace vexo::face {

class Outbox {
public:
    using Message = std::shared_ptr<const std::string>;

    struct Limits {
        std::size_t messages;
        std::size_t bytes;
    };

    explicit Outbox(Limits limits)
        : m_limits(limits) {}

    // Queues `message` at the back. False, and nothing queued, when that would pass a bound:
    // the page is too far behind. A single message larger than the byte bound is taken when
    // the outbox is empty, so that no message is too large to be sent at all.
    [[nodiscard]] bool push(Message message);

    // REQUIRES: !empty(). The oldest message, which stays queued until pop().
    [[nodiscard]] const Message& front() const { return m_messages.front(); }
    // REQUIRES: !empty().
    void pop();

    [[nodiscard]] bool empty() const { return m_messages.empty(); }
    [[nodiscard]] std::size_t size() const { return m_messages.size(); }
    [[nodiscard]] std::size_t bytes() const { return m_bytes; }

private:
    Limits m_limits;
    std::deque<Message> m_messages;
    std::size_t m_bytes = 0;
};

} // namespace vexo::face
