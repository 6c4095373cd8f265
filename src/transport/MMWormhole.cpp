#include "transport/MMWormhole.h"

#include "platform/ipc/NotifyCenter.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/RunLoop.h"

#include <algorithm>

namespace vexo::transport {
namespace {

// One plain file-name component: a safety rule of ours on top of the absent identifier.
bool isPlainFileName(std::string_view identifier) {
    return !identifier.empty() && identifier != "." && identifier != ".." &&
           identifier.find('/') == std::string_view::npos &&
           identifier.find('\0') == std::string_view::npos;
}

} // namespace

void wormholeNotificationCallback(const std::string& name) {
    runtime::NotificationCenter::defaultCenter().post(
        MMWormhole::kNotificationName, nullptr,
        plist::Value(plist::Dictionary{{std::string(MMWormhole::kIdentifierKey), plist::Value(name)}}));
}

MMWormhole::MMWormhole(std::string applicationGroupIdentifier, std::optional<std::string> directory,
                       runtime::RunLoop* loop)
    : m_applicationGroupIdentifier(std::move(applicationGroupIdentifier)),
      m_directory(std::move(directory)), m_loop(loop) {
    runtime::NotificationCenter::defaultCenter().addObserver(
        this, [this](const runtime::Notification& notification) {
            didReceiveMessageNotification(notification);
        },
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
    const auto directoryPath = messagePassingDirectoryPath();
    if (!directoryPath)
        return;
    for (const std::string& name : m_fileManager.contentsOfDirectoryAtPath(*directoryPath))
        m_fileManager.removeItemAtPath(*directoryPath / name);
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

std::optional<std::filesystem::path> MMWormhole::messagePassingDirectoryPath() {
    auto path = m_fileManager.containerURLForSecurityApplicationGroupIdentifier(
        m_applicationGroupIdentifier);
    if (!path)
        return std::nullopt;
    if (m_directory)
        *path /= *m_directory;
    m_fileManager.createDirectoryAtPath(*path);
    return path;
}

std::optional<std::filesystem::path> MMWormhole::filePathForIdentifier(Identifier identifier) {
    if (!identifier || !isPlainFileName(*identifier))
        return std::nullopt;
    auto directoryPath = messagePassingDirectoryPath();
    if (!directoryPath)
        return std::nullopt;
    return *directoryPath / (std::string(*identifier) + ".archive");
}

void MMWormhole::writeMessageObject(const plist::Value& messageObject, Identifier identifier) {
    if (!identifier)
        return;
    const auto data = plist::KeyedArchiver::archivedData(messageObject);
    const auto filePath = filePathForIdentifier(identifier);
    if (data && filePath && m_fileManager.writeToFileAtomically(*filePath, *data))
        sendNotificationForMessageWithIdentifier(*identifier);
}

plist::Value MMWormhole::messageObjectFromFileWithIdentifier(Identifier identifier) {
    const auto filePath = filePathForIdentifier(identifier);
    if (!filePath)
        return plist::Value();
    const auto data = m_fileManager.contentsAtPath(*filePath);
    if (!data)
        return plist::Value();
    return plist::KeyedUnarchiver::unarchiveObject(*data);
}

void MMWormhole::deleteFileForIdentifier(Identifier identifier) {
    if (const auto filePath = filePathForIdentifier(identifier))
        m_fileManager.removeItemAtPath(*filePath);
}

std::shared_ptr<ipc::NotifyCenter> MMWormhole::notifyCenter() {
    const auto container = m_fileManager.containerURLForSecurityApplicationGroupIdentifier(
        m_applicationGroupIdentifier);
    if (!container)
        return nullptr;
    if (m_loop != nullptr)
        return ipc::NotifyCenter::forContainer(*container, *m_loop);
    return ipc::NotifyCenter::forContainer(*container);
}

void MMWormhole::sendNotificationForMessageWithIdentifier(std::string_view identifier) {
    if (const auto center = notifyCenter())
        center->post(identifier);
}

void MMWormhole::registerForNotificationsWithIdentifier(std::string_view identifier) {
    const auto center = notifyCenter();
    if (!center) {
        log::debug("wormhole", "cannot observe '" + std::string(identifier) +
                                   "': no container or no run loop");
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
    // The listener may release this instance: nothing below may touch a member.
    listener(messageObjectFromFileWithIdentifier(*identifier));
}

MMWormhole::Listener MMWormhole::listenerBlockForIdentifier(std::string_view identifier) const {
    const auto found = m_listenerBlocks.find(identifier);
    return found == m_listenerBlocks.end() ? Listener() : found->second;
}

} // namespace vexo::transport
