#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ipc/ContainerDirectory.h"
#include "platform/plist/Value.h"
#include "platform/runtime/Notification.h"

namespace vexo::ipc {
class NotifyCenter;
}
namespace vexo::runtime {
class RunLoop;
}

// A last-value mailbox per message identifier between the phone application and the watch.
//
// A message is stored as "<identifier>.archive" (a keyed archive) in the directory `directory`
// of the application group's shared container, and each write is announced by a
// cross-process notification named by the identifier itself. A listening instance is woken by
// that notification, reads the file and hands the decoded object to its listener. Only the
// last message per identifier is kept; it stays readable until overwritten or cleared.
//
// Identifiers are optional strings: nothing stands for the absent identifier, which maps to
// no file. So does any identifier that is not one plain file-name component (empty, holding
// "/" or NUL, "." or "..").
//
// The message directory is held open and every file operation is relative to it; one that
// was deleted is made again on the next access, as if it were looked up on every call. A
// message file, directory or notification of another user is never acted on, nor is a
// directory replaced by a symbolic link (each refused with a log line).
//
// Every member is for the thread of the loop that delivers the notifications: the loop given
// at construction, else the calling thread's current loop. Listeners run synchronously
// inside the delivery. No operation reports an error: a missing container, a failed write
// or a missing file degrade silently.
namespace vexo::transport {

class MMWormhole {
public:
    // Receives the stored message, or nothing when the file is missing or unreadable.
    using Listener = std::function<void(const plist::Value& messageObject)>;
    using Identifier = std::optional<std::string_view>;

    // The plain initialiser makes no usable instance: it yields nothing.
    [[nodiscard]] static std::unique_ptr<MMWormhole> init() { return nullptr; }

    // Copies both strings and subscribes to the in-process "MMWormholeNotificationName". Touches
    // no file and registers no cross-process observer. Cross-process notifications are
    // delivered on `loop`, or, when it is nullptr, on the current loop of the thread that
    // listens. REQUIRES: `loop` outlives the instance.
    MMWormhole(std::string applicationGroupIdentifier, std::optional<std::string> directory,
               runtime::RunLoop* loop = nullptr);

    // Leaves the in-process centre, then removes every cross-process registration.
    ~MMWormhole();

    MMWormhole(const MMWormhole&) = delete;
    MMWormhole& operator=(const MMWormhole&) = delete;
    MMWormhole(MMWormhole&&) = delete;
    MMWormhole& operator=(MMWormhole&&) = delete;

    // Stores `messageObject` under `identifier` and, when the write succeeded, notifies every
    // listener of the identifier in every process.
    void passMessageObject(const plist::Value& messageObject, Identifier identifier);

    // The stored message, or nothing.
    [[nodiscard]] plist::Value messageWithIdentifier(Identifier identifier);

    // Deletes the stored message; a missing one is no error.
    void clearMessageContentsForIdentifier(Identifier identifier);

    // Deletes every entry of the message directory, whatever its name. Does nothing at all
    // when no directory is set, so that the container itself is never emptied.
    void clearAllMessageContents();

    // Calls `listener` with the stored message on every notification for `identifier` from
    // now on; it does not deliver the message stored now. Replaces an earlier listener; an
    // empty one removes it (the registration stays). Nothing happens for an absent identifier.
    void listenForMessageWithIdentifier(Identifier identifier, Listener listener);

    // Removes the listener and the cross-process registration. The stored file stays.
    void stopListeningForMessageWithIdentifier(Identifier identifier);

    [[nodiscard]] const std::string& applicationGroupIdentifier() const { return m_applicationGroupIdentifier; }
    [[nodiscard]] const std::optional<std::string>& directory() const { return m_directory; }

    // Sees every message handed to a listener, just before the listener, with the object
    // that listener gets: a log of what arrived needs no second read of the file, and sees
    // exactly what the receivers processed. Process-wide; empty removes it. Main loop only.
    using DeliveryObserver = std::function<void(std::string_view identifier, const plist::Value& messageObject)>;
    static void setDeliveryObserver(DeliveryObserver observer);

    // Name of the in-process notification that carries a received cross-process one.
    static constexpr std::string_view kNotificationName = "MMWormholeNotificationName";
    // Its only user-info key; the value is the cross-process notification's name.
    static constexpr std::string_view kIdentifierKey = "identifier";

private:
    // The file name of an identifier's message ("<identifier>.archive"); nothing for an absent
    // identifier or one that is not a plain file name. The directory it lives in is the
    // private file manager's, which comes back on the next access when someone deletes it.
    static std::optional<std::string> filePathForIdentifier(Identifier identifier);
    void writeMessageObject(const plist::Value& messageObject, Identifier identifier);
    plist::Value messageObjectFromFileWithIdentifier(Identifier identifier);
    void deleteFileForIdentifier(Identifier identifier);
    void sendNotificationForMessageWithIdentifier(std::string_view identifier);
    void registerForNotificationsWithIdentifier(std::string_view identifier);
    void unregisterForNotificationsWithIdentifier(std::string_view identifier);
    void didReceiveMessageNotification(const runtime::Notification& notification);
    Listener listenerBlockForIdentifier(std::string_view identifier) const;

    // The cross-process centre of this instance's container on its loop; nothing without a
    // container, or without a loop given and outside a run loop.
    std::shared_ptr<ipc::NotifyCenter> notifyCenter();

    std::string m_applicationGroupIdentifier;
    std::optional<std::string> m_directory;
    runtime::RunLoop* m_loop;
    // The private file manager: the message directory, held open, with the file operations.
    ipc::ContainerDirectory m_fileManager;
    // Kept between writes so that encoding a message reuses its memory.
    plist::Data m_writeBuffer;
    // The centre used last, so that a post does not look it up again.
    std::shared_ptr<ipc::NotifyCenter> m_postCenter;
    std::map<std::string, Listener, std::less<>> m_listenerBlocks;
    // Centres this instance registered with, so that teardown reaches every registration.
    std::vector<std::shared_ptr<ipc::NotifyCenter>> m_notifyCenters;
};

// The cross-process callback: turns a received notification into the in-process
// "MMWormholeNotificationName" with {"identifier": name}, which every instance observes.
void wormholeNotificationCallback(const std::string& name);

} // namespace vexo::transport
