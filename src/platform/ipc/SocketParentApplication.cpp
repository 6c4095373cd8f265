#include "platform/ipc/SocketParentApplication.h"

#include <cctype>
#include <cstdlib>
#include <utility>

#include "platform/ipc/DetachedProcess.h"
#include "platform/ipc/ParentApplicationSocket.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/runtime/Timer.h"

namespace vexo::ipc {
namespace {

constexpr std::string_view kLogComponent = ParentApplicationSocket::kEndpoint.logComponent;

std::string dropped(std::size_t count, std::string_view why) {
    return "dropped " + std::to_string(count) + (count == 1 ? " dictionary" : " dictionaries") +
           " for the phone application: " + std::string(why);
}

} // namespace

SocketParentApplication::SocketParentApplication(std::filesystem::path container, runtime::RunLoop& loop,
                                                 std::optional<std::string> launchCommand)
    : m_loop(loop),
      m_launchCommand(std::move(launchCommand)),
      m_sender(ParentApplicationSocket::kEndpoint, std::move(container)) {}

SocketParentApplication::~SocketParentApplication() {
    if (m_retryTimer)
        m_retryTimer->invalidate();
    if (!m_pending.empty())
        log::debug(kLogComponent, dropped(m_pending.size(), "the link is closing"));
}

std::optional<std::string> SocketParentApplication::launchCommandFromEnvironment() {
    const char* command = std::getenv("VEXO_PHONE_LAUNCH_COMMAND");
    if (command == nullptr)
        return std::nullopt;
    const std::string_view text(command);
    for (const char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c)))
            return std::string(text);
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
    if (archive->size() > ParentApplicationSocket::kMaximumMessageSize) {
        log::debug(kLogComponent,
                   dropped(1, "its archive of " + std::to_string(archive->size()) + " bytes is too large"));
        return;
    }
    // Behind others that wait it waits too, so that the phone application sees the order sent.
    if (!m_pending.empty()) {
        m_pending.push_back({std::move(*archive), m_loop.now() + m_deliveryTimeout});
        return;
    }
    switch (send(*archive)) {
    case SendResult::Sent:
    case SendResult::Failed:
        return;
    case SendResult::Busy:
        m_pending.push_back({std::move(*archive), m_loop.now() + m_deliveryTimeout});
        scheduleRetries();
        return;
    case SendResult::NobodyListens:
        if (!m_launchCommand) {
            log::debug(kLogComponent, dropped(1, "it is not running and no launch command is set"));
            return;
        }
        m_pending.push_back({std::move(*archive), m_loop.now() + m_deliveryTimeout});
        launchIfDue();
        scheduleRetries();
        return;
    }
}

SocketParentApplication::SendResult SocketParentApplication::send(const plist::Data& archive) const {
    const DatagramSender::Result sent = m_sender.send(archive);
    switch (sent.status) {
    case DatagramSender::Status::Sent:
        return SendResult::Sent;
    case DatagramSender::Status::NobodyListens:
        return SendResult::NobodyListens;
    case DatagramSender::Status::Busy:
        return SendResult::Busy;
    case DatagramSender::Status::Failed:
        break;
    }
    log::debug(kLogComponent, dropped(1, sent.reason));
    return SendResult::Failed;
}

void SocketParentApplication::retry() {
    bool nobodyListens = false;
    bool busy = false;
    while (!m_pending.empty() && !nobodyListens && !busy) {
        switch (send(m_pending.front().archive)) {
        case SendResult::Sent:
        case SendResult::Failed:
            m_pending.pop_front();
            break;
        case SendResult::Busy:
            busy = true;
            break;
        case SendResult::NobodyListens:
            nobodyListens = true;
            break;
        }
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
