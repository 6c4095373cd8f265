#include "platform/ipc/SocketParentApplication.h"

#include <cctype>
#include <utility>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/ipc/DetachedProcess.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/runtime/Timer.h"

namespace vexo::ipc {
namespace {

constexpr std::string_view kLogComponent = kParentApplicationEndpoint.logComponent;

std::string dropped(std::size_t count, std::string_view why) {
    return "dropped " + std::to_string(count) + (count == 1 ? " dictionary" : " dictionaries") +
           " for the phone application: " + std::string(why);
}

} // namespace

SocketParentApplication::SocketParentApplication(std::filesystem::path container, runtime::RunLoop& loop,
                                                 std::optional<std::string> launchCommand)
    : m_loop(loop),
      m_launchCommand(std::move(launchCommand)),
      m_sender(kParentApplicationEndpoint, std::move(container)) {}

SocketParentApplication::~SocketParentApplication() {
    if (m_retryTimer)
        m_retryTimer->invalidate();
    if (!m_pending.empty())
        log::debug(kLogComponent, dropped(m_pending.size(), "the link is closing"));
}

std::optional<std::string> SocketParentApplication::launchCommandFrom(const std::optional<std::string>& configured) {
    if (!configured)
        return std::nullopt;
    for (const char c : *configured) {
        if (!std::isspace(static_cast<unsigned char>(c)))
            return configured;
    }
    return std::nullopt;
}

void SocketParentApplication::openParentApplication(const plist::Value& userInfo) {
    if (userInfo.asDictionary() == nullptr) {
        log::debug(kLogComponent, dropped(1, "not a dictionary"));
        return;
    }
    std::optional<plist::Data> archive = plist::KeyedArchiver::archivedData(userInfo);
    if (!archive) {
        log::debug(kLogComponent, dropped(1, "it cannot be archived"));
        return;
    }
    if (archive->size() > kParentApplicationEndpoint.maximumMessageSize) {
        log::debug(kLogComponent,
                   dropped(1, "its archive of " + std::to_string(archive->size()) + " bytes is too large"));
        return;
    }
    // Behind others that wait it waits too, so that the phone application sees the order sent.
    if (!m_pending.empty()) {
        m_pending.push_back({std::move(*archive), m_loop.now() + m_deliveryTimeout});
        return;
    }
    const Expected<void> sent = send(*archive);
    if (sent)
        return;
    switch (sent.error().kind()) {
    case ErrorKind::Busy:
        m_pending.push_back({std::move(*archive), m_loop.now() + m_deliveryTimeout});
        scheduleRetries();
        return;
    case ErrorKind::Unavailable:
        if (!m_launchCommand) {
            log::debug(kLogComponent, dropped(1, "it is not running and no launch command is set"));
            return;
        }
        m_pending.push_back({std::move(*archive), m_loop.now() + m_deliveryTimeout});
        launchIfDue();
        scheduleRetries();
        return;
    default:
        return;
    }
}

Expected<void> SocketParentApplication::send(const plist::Data& archive) const {
    Expected<void> sent = m_sender.send(archive);
    if (!sent && sent.error().kind() != ErrorKind::Busy && sent.error().kind() != ErrorKind::Unavailable)
        log::debug(kLogComponent, dropped(1, sent.error().message()));
    return sent;
}

void SocketParentApplication::retry() {
    bool nobodyListens = false;
    bool busy = false;
    while (!m_pending.empty() && !nobodyListens && !busy) {
        const Expected<void> sent = send(m_pending.front().archive);
        const auto kind = sent ? std::nullopt : std::optional(sent.error().kind());
        if (kind == ErrorKind::Busy)
            busy = true;
        else if (kind == ErrorKind::Unavailable)
            nobodyListens = true;
        else
            m_pending.pop_front();
    }

    std::size_t expired = 0;
    while (!m_pending.empty() && m_pending.front().deadline <= m_loop.now()) {
        m_pending.pop_front();
        ++expired;
    }
    if (expired > 0)
        log::debug(kLogComponent, dropped(expired, "it did not listen in time"));

    if (m_pending.empty()) {
        m_retryTimer->invalidate();
        m_retryTimer.reset();
    } else if (nobodyListens && m_launchCommand) {
        launchIfDue();
    }
}

void SocketParentApplication::launchIfDue() {
    // One start per delivery timeout: a phone application that is slow to listen is not
    // started twice, and one that never listens is tried again for later dictionaries only.
    if (m_lastLaunch && m_loop.now() - *m_lastLaunch < m_deliveryTimeout)
        return;
    m_lastLaunch = m_loop.now();
    log::debug(kLogComponent, "starting the phone application: " + *m_launchCommand);
    (void)DetachedProcess::start(*m_launchCommand);
}

void SocketParentApplication::scheduleRetries() {
    if (m_retryTimer)
        return;
    m_retryTimer = runtime::Timer::scheduledTimer(m_loop, kRetryInterval, runtime::Timer::Repeats::Yes,
                                                  [this](runtime::Timer&) { retry(); });
}

} // namespace vexo::ipc
