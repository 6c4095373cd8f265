#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/plist/Value.h"

// A local notification that the phone application schedules for the watch: an alert with
// action buttons, and user info that comes back with the action the user picks.
//
// On the wire (see kLocalNotificationEndpoint) it is the keyed archive of the dictionary
//   {"alertTitle": string, "alertBody": string, "category": string,
//    "userInfo": dictionary, "actions": [{"identifier": string, "title": string}, ...]}.
namespace vexo::ipc {

struct LocalNotificationAction {
    std::string identifier;
    std::string title;

    friend bool operator==(const LocalNotificationAction&, const LocalNotificationAction&) = default;
};

struct LocalNotification {
    std::string alertTitle;
    std::string alertBody;
    std::string category;
    // Always a dictionary; empty when the notification carries no user info.
    plist::Value userInfo = plist::Value(plist::Dictionary{});
    std::vector<LocalNotificationAction> actions;

    // The dictionary form above, every key present.
    [[nodiscard]] plist::Value dictionary() const;

    // Reads the dictionary form. A missing text reads as "", missing user info as an empty
    // dictionary, missing actions as none. Refused, with a debug log line saying why: a value
    // that is no dictionary, a text key holding something other than a string, user info
    // that is no dictionary, actions that are no array, or an action that is no dictionary,
    // has no non-empty string "identifier" or a "title" other than a string. Thread-safe.
    [[nodiscard]] static std::optional<LocalNotification> fromDictionary(const plist::Value& dictionary);

    friend bool operator==(const LocalNotification&, const LocalNotification&) = default;
};

} // namespace vexo::ipc
