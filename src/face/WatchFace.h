#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/plist/Value.h"
#include "platform/watchkit/EventResult.h"

namespace vexo::runtime {
class RunLoop;
}
namespace vexo::watchkit {
class ExtensionHost;
struct ImageData;
} // namespace vexo::watchkit

// The watch as the face server sees it: the extension host, the protocol log and the local
// notifications on the main loop, reached from the server's own thread through the
// thread-safe post*() calls, and a stream of messages that every connected page receives.
//
// Stream messages (server to page), each one JSON text:
//   {"type": "snapshot", "snapshot": <ExtensionHost snapshot>}         first, once
//   {"type": "log", "records": [<ProtocolLog record>, ...]}            after the snapshot:
//                                                                      every kept record;
//                                                                      later one per record
//   {"type": "notifications", "notifications": [<notification>, ...]}  after the snapshot:
//                                                                      the ones still open
//   {"type": "changes", "revision": n, "changes": [...]}               every change batch
//   {"type": "notification", "notification": <notification>}           a new one arrived
//   {"type": "notificationClosed", "id": "<id>"}                       acted on, dismissed
//                                                                      or pushed out
//   {"type": "result", "id": <the event's "id">, "ok": bool, "status": 200 | 400 | 409,
//    "error"?: "<reason>"}                                             to the sender only
// A page applies the change batches whose revision is above the snapshot's.
//
//   notification = {"id": "<id>", "alertTitle", "alertBody", "category",
//                   "userInfo": {...} (property-list JSON, data as {"$data": base64}),
//                   "actions": [{"identifier", "title"}, ...], "time": <ms since 1970>}
//
// Events (page to server, or the body of POST /api/events): the host's JSON events
// (ExtensionHost::handleEvent) with an optional "id" of any JSON type that the result
// echoes, and two of the face's own:
//   {"type": "notificationAction", "notification": "<id>", "identifier": "<action>"}
//       the user chose an action of an open notification; it goes to the host with the
//       notification's user info, and the notification closes
//   {"type": "dismissNotification", "notification": "<id>"}
// A result's status is 200 when done, 400 when the event is malformed, 409 when what is on
// screen refuses it.
namespace vexo::face {

class ProtocolLog;

class WatchFace {
public:
    // At most this many notifications stay open; a newer one pushes out the oldest.
    static constexpr std::size_t kMaximumOpenNotifications = 20;

    using Message = std::shared_ptr<const std::string>;
    // Hands one stream message to every page. Called on the main loop.
    using Publisher = std::function<void(const Message& message)>;
    // The PNG bytes of a named asset, or nothing. Called on the server's thread.
    using AssetLookup = std::function<std::optional<std::vector<std::uint8_t>>(std::string_view name)>;
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    struct Outcome {
        int status = 200;
        nlohmann::json body;
    };

    // REQUIRES: `loop`, `host` and `log` outlive this object; made and destroyed on the
    // main loop's thread.
    WatchFace(runtime::RunLoop& loop, watchkit::ExtensionHost& host, ProtocolLog& log, AssetLookup assets,
              Clock clock = {});
    ~WatchFace();
    WatchFace(const WatchFace&) = delete;
    WatchFace& operator=(const WatchFace&) = delete;

    // Main loop: every stream message from now on goes to `publisher` (empty: nowhere).
    void setPublisher(Publisher publisher);

    // Thread-safe. On the main loop, calls `done` with the messages a new page starts with
    // (snapshot, log, open notifications); every message published after them is newer.
    // `done` is not called once this object is gone.
    void postWelcome(std::function<void(std::vector<Message>)> done);

    // Thread-safe. Handles `event` on the main loop and calls `done` there with the result:
    // the status and {"ok": bool, "error"?: s, "id"?: the event's id}.
    void postEvent(nlohmann::json event, std::function<void(Outcome)> done);

    // Thread-safe. Answers, on the main loop and so in order with the events posted before
    // it, an event that could not be read, with 400 and `reason`.
    void postUnreadable(std::string reason, std::function<void(Outcome)> done);

    // Thread-safe. The snapshot, or the kept log records as {"records": [...]}, as JSON text
    // handed to `done` on the main loop.
    void postSnapshot(std::function<void(std::string)> done);
    void postLog(std::function<void(std::string)> done);

    // Thread-safe: image bytes a snapshot names, and named assets.
    [[nodiscard]] std::shared_ptr<const watchkit::ImageData> imageWithId(std::string_view id) const;
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> assetNamed(std::string_view name) const;

    // Main loop: shows a local notification on every page until it is acted on or dismissed.
    void showNotification(std::string alertTitle, std::string alertBody, std::string category, plist::Value userInfo,
                          std::vector<std::pair<std::string, std::string>> actions);

    // Main loop: handles one event as postEvent() does.
    [[nodiscard]] Outcome handleEvent(const nlohmann::json& event);

    // Main loop: the notifications open now.
    [[nodiscard]] nlohmann::json openNotifications() const;

    // JSON as stream or response text: invalid UTF-8 is replaced, never thrown on.
    [[nodiscard]] static std::string dump(const nlohmann::json& json);

private:
    struct OpenNotification {
        std::string id;
        nlohmann::json record;
        plist::Value userInfo;
        std::vector<std::string> actions;
    };

    void publish(const nlohmann::json& message);
    void closeNotification(std::deque<OpenNotification>::iterator position);
    [[nodiscard]] watchkit::EventResult handleFaceEvent(const std::string& type, const nlohmann::json& event);

    runtime::RunLoop& m_loop;
    watchkit::ExtensionHost& m_host;
    ProtocolLog& m_log;
    AssetLookup m_assets;
    Clock m_clock;
    Publisher m_publisher;
    std::uint64_t m_hostSubscription = 0;
    std::uint64_t m_logSubscription = 0;
    std::deque<OpenNotification> m_notifications;
    std::uint64_t m_nextNotification = 1;
    // Work posted to the loop holds this weakly and does nothing once we are gone.
    std::shared_ptr<WatchFace*> m_alive;
};

} // namespace vexo::face
