#include "phone/PhoneLink.h"

#include "model/VXAWProtocol.h"
#include "phone/Engine.h"
#include "platform/ipc/LocalNotificationSender.h"
#include "platform/ipc/ParentApplicationReceiver.h"
#include "transport/MMWormhole.h"

namespace vexo::phone {

using namespace vexo::model;

PhoneLink::PhoneLink(std::string applicationGroup, std::filesystem::path container, runtime::RunLoop& loop)
    : m_loop(loop),
      m_wormhole(std::make_unique<transport::MMWormhole>(std::move(applicationGroup),
                                                         std::string(kWormholeMessageDirectory), &loop)),
      m_notificationSender(std::make_unique<ipc::LocalNotificationSender>(container)) {
    m_receiver = std::make_unique<ipc::ParentApplicationReceiver>(
        container, loop, [this](const plist::Value& dictionary) { receiveDictionary(dictionary); });
    if (m_receiver->isListening())
        m_wormhole->listenForMessageWithIdentifier(VXAWLibraryActionMessageIdentifier,
                                                   [this](const plist::Value&) { readLibraryAction(); });
}

PhoneLink::~PhoneLink() {
    m_receiver.reset();
    m_wormhole->stopListeningForMessageWithIdentifier(VXAWLibraryActionMessageIdentifier);
}

bool PhoneLink::isListening() const {
    return m_receiver->isListening();
}

void PhoneLink::passMessageObject(const plist::Value& message, std::string_view identifier) {
    m_wormhole->passMessageObject(message, identifier);
}

void PhoneLink::sendLocalNotification(const ipc::LocalNotification& notification) {
    (void)m_notificationSender->send(notification);
}

void PhoneLink::receiveDictionary(const plist::Value& dictionary) {
    if (m_engine == nullptr)
        return;
    // A dictionary that is no action is the wake-up that follows a library action.
    if (!m_engine->handleParentApplicationDictionary(dictionary))
        readLibraryAction();
}

void PhoneLink::readLibraryAction() {
    if (m_engine == nullptr)
        return;
    const plist::Value message = m_wormhole->messageWithIdentifier(VXAWLibraryActionMessageIdentifier);
    // Cleared before it is handled, so that the wake-up and the notification of one action,
    // whichever comes second, find nothing; an undecodable file goes too.
    m_wormhole->clearMessageContentsForIdentifier(VXAWLibraryActionMessageIdentifier);
    if (!message.isNull())
        m_engine->handleLibraryAction(message);
}

} // namespace vexo::phone
