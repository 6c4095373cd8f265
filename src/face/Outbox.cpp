#include "face/Outbox.h"

namespace vexo::face {

bool Outbox::push(Message message) {
    const std::size_t size = message ? message->size() : 0;
    if (m_messages.size() >= m_limits.messages)
        return false;
    if (!m_messages.empty() && m_bytes + size > m_limits.bytes)
        return false;
    m_bytes += size;
    m_messages.push_back(std::move(message));
    return true;
}

void Outbox::pop() {
    const Message& oldest = m_messages.front();
    m_bytes -= oldest ? oldest->size() : 0;
    m_messages.pop_front();
}

} // namespace vexo::face
