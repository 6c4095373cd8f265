#include "face/WatchFace.h"

#include <algorithm>

#include "face/ProtocolLog.h"
#include "platform/log/Log.h"
#include "platform/plist/Json.h"
#include "platform/runtime/RunLoop.h"
#include "platform/watchkit/ExtensionHost.h"

namespace vexo::face {

namespace {

constexpr std::string_view kComponent = "face";

int statusOf(const watchkit::EventResult& result) {
    if (result)
        return 200;
    return result.error().kind() == ErrorKind::InvalidData ? 400 : 409;
}

} // namespace

WatchFace::WatchFace(runtime::RunLoop& loop, watchkit::ExtensionHost& host, ProtocolLog& log, AssetLookup assets,
                     Clock clock)
    : m_loop(loop),
      m_host(host),
      m_log(log),
      m_assets(std::move(assets)),
      m_clock(std::move(clock)),
      m_alive(std::make_shared<WatchFace*>(this)) {
    if (!m_clock)
        m_clock = [] { return std::chrono::system_clock::now(); };
    m_hostSubscription = m_host.subscribe([this](const nlohmann::json& batch) {
        nlohmann::json message = batch;
        message["type"] = "changes";
        publish(message);
    });
    m_logSubscription = m_log.subscribe([this](const nlohmann::json& record) {
        publish({{"type", "log"}, {"records", nlohmann::json::array({record})}});
    });
}

WatchFace::~WatchFace() {
    m_alive.reset();
    m_host.unsubscribe(m_hostSubscription);
    m_log.unsubscribe(m_logSubscription);
}

std::string WatchFace::dump(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void WatchFace::setPublisher(Publisher publisher) {
    m_publisher = std::move(publisher);
}

void WatchFace::publish(const nlohmann::json& message) {
    if (m_publisher)
        m_publisher(std::make_shared<const std::string>(dump(message)));
}

void WatchFace::postWelcome(std::function<void(std::vector<Message>)> done) {
    m_loop.post([alive = std::weak_ptr<WatchFace*>(m_alive), done = std::move(done)] {
        auto self = alive.lock();
        if (!self)
            return;
        WatchFace& face = **self;
        // Whatever is pending goes out as a batch first, so that the snapshot's revision
        // separates what a page has from what it will get.
        face.m_host.flushChanges();
        std::vector<Message> messages;
        messages.push_back(
            std::make_shared<const std::string>(dump({{"type", "snapshot"}, {"snapshot", face.m_host.snapshot()}})));
        messages.push_back(
            std::make_shared<const std::string>(dump({{"type", "log"}, {"records", face.m_log.records()}})));
        messages.push_back(std::make_shared<const std::string>(
            dump({{"type", "notifications"}, {"notifications", face.openNotifications()}})));
        done(std::move(messages));
    });
}

void WatchFace::postEvent(nlohmann::json event, std::function<void(Outcome)> done) {
    m_loop.post([alive = std::weak_ptr<WatchFace*>(m_alive), event = std::move(event), done = std::move(done)] {
        if (auto self = alive.lock())
            done((*self)->handleEvent(event));
    });
}

void WatchFace::postUnreadable(std::string reason, std::function<void(Outcome)> done) {
    m_loop.post([alive = std::weak_ptr<WatchFace*>(m_alive), reason = std::move(reason), done = std::move(done)] {
        if (alive.lock())
            done({400, watchkit::toJson(watchkit::eventMalformed(reason))});
    });
}

void WatchFace::postSnapshot(std::function<void(std::string)> done) {
    m_loop.post([alive = std::weak_ptr<WatchFace*>(m_alive), done = std::move(done)] {
        if (auto self = alive.lock()) {
            // Changes made earlier in this turn go out as their batch first, so that the
            // snapshot's revision names everything it shows.
            (*self)->m_host.flushChanges();
            done(dump((*self)->m_host.snapshot()));
        }
    });
}

void WatchFace::postLog(std::function<void(std::string)> done) {
    m_loop.post([alive = std::weak_ptr<WatchFace*>(m_alive), done = std::move(done)] {
        if (auto self = alive.lock())
            done(dump({{"records", (*self)->m_log.records()}}));
    });
}

std::shared_ptr<const watchkit::ImageData> WatchFace::imageWithId(std::string_view id) const {
    return m_host.imageWithId(id);
}

std::optional<std::vector<std::uint8_t>> WatchFace::assetNamed(std::string_view name) const {
    return m_assets ? m_assets(name) : std::nullopt;
}

WatchFace::Outcome WatchFace::handleEvent(const nlohmann::json& event) {
    nlohmann::json id;
    watchkit::EventResult result;
    if (!event.is_object()) {
        result = watchkit::eventMalformed("event: an event is a JSON object with a \"type\"");
    } else {
        nlohmann::json hostEvent = event;
        if (auto found = hostEvent.find("id"); found != hostEvent.end()) {
            id = *found;
            hostEvent.erase(found);
        }
        auto type = hostEvent.find("type");
        std::string typeName = type != hostEvent.end() && type->is_string() ? type->get<std::string>() : "";
        if (typeName == "dismissNotification" ||
            (typeName == "notificationAction" && hostEvent.contains("notification")))
            result = handleFaceEvent(typeName, hostEvent);
        else
            result = m_host.handleEvent(hostEvent);
    }
    nlohmann::json body = watchkit::toJson(result);
    if (!id.is_null())
        body["id"] = id;
    return {statusOf(result), std::move(body)};
}

watchkit::EventResult WatchFace::handleFaceEvent(const std::string& type, const nlohmann::json& event) {
    bool isAction = type == "notificationAction";
    for (const auto& [key, value] : event.items()) {
        if (key != "type" && key != "notification" && !(isAction && key == "identifier"))
            return watchkit::eventMalformed(type + ": unknown field '" + key + "'");
    }
    const nlohmann::json& notification = event["notification"];
    if (!notification.is_string())
        return watchkit::eventMalformed(type + ": needs \"notification\" as a string");
    if (isAction && (!event.contains("identifier") || !event["identifier"].is_string()))
        return watchkit::eventMalformed(type + ": needs \"identifier\" as a string");
    auto position = std::find_if(m_notifications.begin(), m_notifications.end(), [&](const OpenNotification& open) {
        return open.id == notification.get<std::string>();
    });
    if (position == m_notifications.end())
        return watchkit::eventRefused(type + ": no open notification '" + notification.get<std::string>() + "'");
    if (!isAction) {
        closeNotification(position);
        return watchkit::EventResult();
    }
    std::string identifier = event["identifier"].get<std::string>();
    if (std::find(position->actions.begin(), position->actions.end(), identifier) == position->actions.end())
        return watchkit::eventRefused(type + ": notification '" + position->id + "' has no action '" + identifier +
                                      "'");
    plist::Value userInfo = position->userInfo;
    closeNotification(position);
    return m_host.deliverNotificationAction(identifier, std::move(userInfo));
}

void WatchFace::showNotification(std::string alertTitle, std::string alertBody, std::string category,
                                 plist::Value userInfo, std::vector<std::pair<std::string, std::string>> actions) {
    if (m_notifications.size() >= kMaximumOpenNotifications)
        closeNotification(m_notifications.begin());
    OpenNotification open;
    open.id = "n" + std::to_string(m_nextNotification++);
    nlohmann::json actionsJson = nlohmann::json::array();
    for (const auto& [identifier, title] : actions) {
        actionsJson.push_back({{"identifier", identifier}, {"title", title}});
        open.actions.push_back(identifier);
    }
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(m_clock().time_since_epoch()).count();
    open.record = {{"id", open.id},
                   {"alertTitle", std::move(alertTitle)},
                   {"alertBody", std::move(alertBody)},
                   {"category", std::move(category)},
                   {"userInfo", plist::json::toJson(userInfo)},
                   {"actions", std::move(actionsJson)},
                   {"time", millis}};
    open.userInfo = std::move(userInfo);
    log::info(kComponent, "notification " + open.id + ": " + dump(open.record["alertTitle"]));
    m_notifications.push_back(std::move(open));
    publish({{"type", "notification"}, {"notification", m_notifications.back().record}});
}

void WatchFace::closeNotification(std::deque<OpenNotification>::iterator position) {
    std::string id = position->id;
    m_notifications.erase(position);
    publish({{"type", "notificationClosed"}, {"id", id}});
}

nlohmann::json WatchFace::openNotifications() const {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& open : m_notifications)
        out.push_back(open.record);
    return out;
}

} // namespace vexo::face
