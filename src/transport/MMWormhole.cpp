#include "transport/MMWormhole.h"

#include <algorithm>

#include "platform/ipc/NotifyCenter.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/RunLoop.h"

namespace vexo::transport {

namespace {

MMWormhole::DeliveryObserver& deliveryObserver() {
    static MMWormhole::DeliveryObserver observer;
    return observer;
}

} // namespace

void MMWormhole::setDeliveryObserver(DeliveryObserver observer) {
    deliveryObserver() = std::move(observer);
}

void wormholeNotificationCallback(const std::string& name) {
    runtime::NotificationCenter::defaultCenter().post(
        MMWormhole::kNotificationName, nullptr,
        plist::Value(plist::Dictionary{{std::string(MMWormhole::kIdentifierKey), plist::Value(name)}}));
}

MMWormhole::MMWormhole(std::string applicationGroupIdentifier, std::optional<std::string> directory,
                       runtime::RunLoop* loop)
    : m_applicationGroupIdentifier(std::move(applicationGroupIdentifier)),
      m_directory(std::move(directory)),
      m_loop(loop),
      m_fileManager(m_applicationGroupIdentifier, m_directory) {
    runtime::NotificationCenter::defaultCenter().addObserver(
        this, [this](const runtime::Notification& notification) { didReceiveMessageNotification(notification); },
        kNotificationName);
}

MMWormhole::~MMWormhole() {
    runtime::NotificationCenter::defaultCenter().removeObserver(this);
    for (const auto& center : m_notifyCenters)
        center->removeEveryObserver(this);
}

void MMWormhole::passMessageObject(const plist::Value& messageObject, Identifier identifier) {
    writeMessageObject(messageObject, identifier);
}

plist::Value MMWormhole::messageWithIdentifier(Identifier identifier) {
    return messageObjectFromFileWithIdentifier(identifier);
}

void MMWormhole::clearMessageContentsForIdentifier(Identifier identifier) {
    deleteFileForIdentifier(identifier);
}

void MMWormhole::clearAllMessageContents() {
    if (!m_directory)
        return;
    m_fileManager.removeAllEntries();
}

void MMWormhole::listenForMessageWithIdentifier(Identifier identifier, Listener listener) {
    if (!identifier)
        return;
    if (listener)
        m_listenerBlocks.insert_or_assign(std::string(*identifier), std::move(listener));
    else if (const auto found = m_listenerBlocks.find(*identifier); found != m_listenerBlocks.end())
        m_listenerBlocks.erase(found);
    registerForNotificationsWithIdentifier(*identifier);
}

void MMWormhole::stopListeningForMessageWithIdentifier(Identifier identifier) {
    if (!identifier)
        return;
    if (const auto found = m_listenerBlocks.find(*identifier); found != m_listenerBlocks.end())
        m_listenerBlocks.erase(found);
    unregisterForNotificationsWithIdentifier(*identifier);
}

std::optional<std::string> MMWormhole::filePathForIdentifier(Identifier identifier) {
    if (!identifier || !ipc::ContainerDirectory::isPlainFileName(*identifier))
        return std::nullopt;
    std::string fileName;
    fileName.reserve(identifier->size() + 8);
    fileName.append(*identifier).append(".archive");
    return fileName;
}

void MMWormhole::writeMessageObject(const plist::Value& messageObject, Identifier identifier) {
    if (!identifier)
        return;
    if (!plist::KeyedArchiver::archive(messageObject, m_writeBuffer))
        return;
    const auto fileName = filePathForIdentifier(identifier);
    if (fileName && m_fileManager.writeAtomically(*fileName, m_writeBuffer))
        sendNotificationForMessageWithIdentifier(*identifier);
}

plist::Value MMWormhole::messageObjectFromFileWithIdentifier(Identifier identifier) {
    const auto fileName = filePathForIdentifier(identifier);
    if (!fileName)
        return plist::Value();
    const auto bytes = m_fileManager.read(*fileName);
    if (!bytes)
        return plist::Value();
    return plist::KeyedUnarchiver::unarchiveObject(*bytes);
}

void MMWormhole::deleteFileForIdentifier(Identifier identifier) {
    if (const auto fileName = filePathForIdentifier(identifier))
        m_fileManager.remove(*fileName);
}

std::shared_ptr<ipc::NotifyCenter> MMWormhole::notifyCenter() {
    const auto container = m_fileManager.containerPath();
    if (!container)
        return nullptr;
    runtime::RunLoop* loop = m_loop != nullptr ? m_loop : runtime::RunLoop::current();
    if (loop == nullptr)
        return nullptr;
    if (m_postCenter && m_postCenter->container() == *container && &m_postCenter->loop() == loop)
        return m_postCenter;
    m_postCenter = ipc::NotifyCenter::forContainer(*container, *loop);
    return m_postCenter;
}

void MMWormhole::sendNotificationForMessageWithIdentifier(std::string_view identifier) {
    if (const auto center = notifyCenter())
        center->post(identifier);
}

void MMWormhole::registerForNotificationsWithIdentifier(std::string_view identifier) {
    const auto center = notifyCenter();
    if (!center) {
        log::debug("wormhole", "cannot observe '" + std::string(identifier) + "': no container or no run loop");
        return;
    }
    center->addObserver(this, identifier, wormholeNotificationCallback);
    if (std::find(m_notifyCenters.begin(), m_notifyCenters.end(), center) == m_notifyCenters.end())
        m_notifyCenters.push_back(center);
}

void MMWormhole::unregisterForNotificationsWithIdentifier(std::string_view identifier) {
    for (const auto& center : m_notifyCenters)
        center->removeObserver(this, identifier);
}

void MMWormhole::didReceiveMessageNotification(const runtime::Notification& notification) {
    const auto identifier = notification.userInfo[kIdentifierKey].stringValue();
    if (!identifier)
        return;
    const Listener listener = listenerBlockForIdentifier(*identifier);
    if (!listener)
        return;
    const plist::Value message = messageObjectFromFileWithIdentifier(*identifier);
    if (const DeliveryObserver observer = deliveryObserver())
        observer(*identifier, message);
    // The listener may release this instance: nothing below may touch a member.
    listener(message);
}

MMWormhole::Listener MMWormhole::listenerBlockForIdentifier(std::string_view identifier) const {
    const auto found = m_listenerBlocks.find(identifier);
    return found == m_listenerBlocks.end() ? Listener() : found->second;
}

} // namespace vexo::transport
