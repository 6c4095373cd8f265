#include "model/KMExtensions.h"

#include <cinttypes>
#include <cstdio>

#include "model/Environment.h"
#include "platform/media/MediaLibrary.h"
#include "platform/plist/NumericText.h"

namespace vexo::model {
namespace {

std::string hexText(std::uint64_t value) {
    char text[17];
    std::snprintf(text, sizeof text, "%" PRIX64, value);
    return text;
}

} // namespace

std::optional<media::MediaItem> KMExtensions::mediaItemForPersistentID(const plist::Value& persistentID) {
    const plist::Value number =
        persistentID.asString() ? persistentIDNumberForString(*persistentID.asString()) : persistentID;
    if (number.isNull())
        return std::nullopt;
    const auto& library = environment().mediaLibrary;
    if (!library)
        return std::nullopt;
    auto items = library->itemsWithPersistentID(number.unsignedLongLongValue());
    if (items.empty())
        return std::nullopt;
    return std::move(items.back());
}

std::optional<std::string> KMExtensions::persistentIDStringForNumber(const plist::Value& number) {
    if (number.isNull())
        return std::nullopt;
    return hexText(number.unsignedLongLongValue());
}

plist::Value KMExtensions::persistentIDNumberForString(const std::optional<std::string>& string) {
    if (!string)
        return plist::Value();
    const auto value = plist::text::scanHexUnsigned(*string);
    if (!value)
        return plist::Value();
    return plist::Value(*value);
}

std::string KMExtensions::persistentIDString(const media::MediaItem& item) {
    return *persistentIDStringForNumber(plist::Value(item.persistentID()));
}

} // namespace vexo::model
