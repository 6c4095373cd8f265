#pragma once

#include <cstddef>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/base/Expected.h"
#include "platform/ipc/DatagramSender.h"
#include "platform/ipc/ParentApplication.h"
#include "platform/plist/Value.h"
#include "platform/runtime/RunLoop.h"

namespace vexo::runtime {
class Timer;
}

// The watch's road to the phone application: each dictionary goes as one datagram to the
// phone application's socket in the shared container (see kParentApplicationEndpoint).
//
// When nobody listens and a launch command is configured, the command is started (as
// `/bin/sh -c <command>`, in a session of its own, with our standard output and error and
// no standard input; never waited for) and the dictionaries wait, in order, until the phone
// application listens: they are retried every kRetryInterval seconds on the loop, each for
// at most deliveryTimeout() seconds, and then dropped with a debug log line. A phone
// application whose queue is full is retried the same way. Without a launch command, a
// dictionary nobody listens for is dropped at once with a debug log line. The loop is never
// blocked: sends do not wait, and retries are timer callbacks.
namespace vexo::ipc {

class SocketParentApplication final : public ParentApplication {
public:
    static constexpr double kRetryInterval = 0.05;
    static constexpr double kDefaultDeliveryTimeout = 5.0;

    // Sends to the phone application listening in `container`, retrying on `loop`; starts
    // `launchCommand`, when given, if nobody listens. REQUIRES: `loop` outlives this object.
    SocketParentApplication(std::filesystem::path container, runtime::RunLoop& loop,
                            std::optional<std::string> launchCommand);

    // Drops, with a debug log line, the dictionaries still waiting.
    ~SocketParentApplication() override;

    // See ParentApplication. A value that is not a dictionary, or whose archive is larger
    // than kParentApplicationEndpoint.maximumMessageSize, is dropped with a debug log line.
    // Loop thread only.
    void openParentApplication(const plist::Value& userInfo) override;

    // `configured` (VEXO_PHONE_LAUNCH_COMMAND) as a launch command: nothing when it is
    // nothing or blank.
    [[nodiscard]] static std::optional<std::string> launchCommandFrom(const std::optional<std::string>& configured);

    // How long, in seconds of the loop's clock, a dictionary waits for the phone application
    // before it is dropped; kDefaultDeliveryTimeout unless set. Loop thread only.
    void setDeliveryTimeout(double seconds) { m_deliveryTimeout = seconds; }
    [[nodiscard]] double deliveryTimeout() const { return m_deliveryTimeout; }

    // The dictionaries waiting to be delivered. Loop thread only.
    [[nodiscard]] std::size_t pendingCount() const { return m_pending.size(); }

private:
    struct Pending {
        plist::Data archive;
        double deadline;
    };

    // Sends `archive` once; see DatagramSender::send. A SystemFailure is logged here, as the
    // dictionary is then dropped.
    [[nodiscard]] Expected<void> send(const plist::Data& archive) const;
    // Sends what waits, in order, until one cannot go; drops what has waited too long.
    void retry();
    // Starts the launch command unless it was started less than a delivery timeout ago.
    void launchIfDue();
    void scheduleRetries();

    runtime::RunLoop& m_loop;
    const std::optional<std::string> m_launchCommand;
    double m_deliveryTimeout = kDefaultDeliveryTimeout;
    DatagramSender m_sender;
    std::deque<Pending> m_pending;
    std::shared_ptr<runtime::Timer> m_retryTimer;
    std::optional<double> m_lastLaunch;
};

} // namespace vexo::ipc
