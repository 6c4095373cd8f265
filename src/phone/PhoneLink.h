#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "phone/StatusSink.h"
#include "platform/ipc/LocalNotification.h"
#include "platform/runtime/RunLoop.h"

namespace vexo::ipc {
class LocalNotificationSender;
class ParentApplicationReceiver;
} // namespace vexo::ipc
namespace vexo::transport {
class MMWormhole;
}

// The phone application's ends of the link to the watch, in one application group's
// container: the parent-application socket on which deck and mixer actions arrive, the
// "libraryAction" message through which library actions arrive (read on every dictionary
// that wakes us and on the message's notification, then cleared so that it is handled once),
// the message transport that carries the status messages out, and the local-notification
// road to the watch.
namespace vexo::phone {

class Engine;

class PhoneLink final : public StatusSink {
public:
    // Hands what arrives to `engine` (which may be set later; see setEngine). Listens only
    // when the parent-application socket is free; see isListening(). REQUIRES: `loop`
    // outlives the link. Loop thread only.
    PhoneLink(std::string applicationGroup, std::filesystem::path container, runtime::RunLoop& loop);
    ~PhoneLink() override;

    PhoneLink(const PhoneLink&) = delete;
    PhoneLink& operator=(const PhoneLink&) = delete;

    // False when another phone application listens in the container, or the socket could
    // not be made (a log line says which).
    [[nodiscard]] bool isListening() const;

    // REQUIRES: `engine` outlives the link, or is unset before it goes.
    void setEngine(Engine* engine) { m_engine = engine; }

    void passMessageObject(const plist::Value& message, std::string_view identifier) override;

    // Sends `notification` to the watch; a watch that does not listen misses it.
    void sendLocalNotification(const ipc::LocalNotification& notification);

private:
    void receiveDictionary(const plist::Value& dictionary);
    void readLibraryAction();

    runtime::RunLoop& m_loop;
    std::unique_ptr<transport::MMWormhole> m_wormhole;
    std::unique_ptr<ipc::ParentApplicationReceiver> m_receiver;
    std::unique_ptr<ipc::LocalNotificationSender> m_notificationSender;
    Engine* m_engine = nullptr;
};

} // namespace vexo::phone
