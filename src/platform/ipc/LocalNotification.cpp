#include "platform/ipc/LocalNotification.h"

#include <string_view>

#include "platform/log/Log.h"

namespace vexo::ipc {
namespace {

constexpr std::string_view kLogComponent = "notification";

constexpr std::string_view kAlertTitleKey = "alertTitle";
constexpr std::string_view kAlertBodyKey = "alertBody";
constexpr std::string_view kCategoryKey = "category";
constexpr std::string_view kUserInfoKey = "userInfo";
constexpr std::string_view kActionsKey = "actions";
constexpr std::string_view kActionIdentifierKey = "identifier";
constexpr std::string_view kActionTitleKey = "title";

std::optional<LocalNotification> refuse(std::string_view why) {
    log::debug(kLogComponent, "refused a local notification: " + std::string(why));
    return std::nullopt;
}

// Reads `key` of `dictionary` into `text`; false when it holds something other than a string.
bool readText(const plist::Value& dictionary, std::string_view key, std::string& text) {
    const plist::Value& value = dictionary[key];
    if (value.isNull())
        return true;
    if (const std::string* string = value.asString()) {
        text = *string;
        return true;
    }
    return false;
}

} // namespace

plist::Value LocalNotification::dictionary() const {
    plist::Array actionList;
    actionList.reserve(actions.size());
    for (const LocalNotificationAction& action : actions)
        actionList.emplace_back(plist::Dictionary{{std::string(kActionIdentifierKey), plist::Value(action.identifier)},
                                                  {std::string(kActionTitleKey), plist::Value(action.title)}});
    return plist::Value(plist::Dictionary{
        {std::string(kAlertTitleKey), plist::Value(alertTitle)},
        {std::string(kAlertBodyKey), plist::Value(alertBody)},
        {std::string(kCategoryKey), plist::Value(category)},
        {std::string(kUserInfoKey), userInfo.asDictionary() != nullptr ? userInfo : plist::Value(plist::Dictionary{})},
        {std::string(kActionsKey), plist::Value(std::move(actionList))},
    });
}

std::optional<LocalNotification> LocalNotification::fromDictionary(const plist::Value& dictionary) {
    if (dictionary.asDictionary() == nullptr)
        return refuse("it is no dictionary");
    LocalNotification notification;
    for (const auto& [key, text] :
         {std::pair{kAlertTitleKey, &notification.alertTitle}, std::pair{kAlertBodyKey, &notification.alertBody},
          std::pair{kCategoryKey, &notification.category}}) {
        if (!readText(dictionary, key, *text))
            return refuse("\"" + std::string(key) + "\" is no string");
    }

    const plist::Value& userInfo = dictionary[kUserInfoKey];
    if (userInfo.asDictionary() != nullptr)
        notification.userInfo = userInfo;
    else if (!userInfo.isNull())
        return refuse("\"userInfo\" is no dictionary");

    const plist::Value& actions = dictionary[kActionsKey];
    if (const plist::Array* list = actions.asArray()) {
        for (const plist::Value& element : *list) {
            if (element.asDictionary() == nullptr)
                return refuse("an action is no dictionary");
            LocalNotificationAction action;
            const std::string* identifier = element[kActionIdentifierKey].asString();
            if (identifier == nullptr || identifier->empty())
                return refuse("an action has no identifier");
            action.identifier = *identifier;
            if (!readText(element, kActionTitleKey, action.title))
                return refuse("the title of action \"" + action.identifier + "\" is no string");
            notification.actions.push_back(std::move(action));
        }
    } else if (!actions.isNull()) {
        return refuse("\"actions\" is no array");
    }
    return notification;
}

} // namespace vexo::ipc
