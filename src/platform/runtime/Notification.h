#pragma once

#include <string>

#include "platform/plist/Value.h"

namespace vexo::runtime {

// One in-process notification as its observers receive it (NotificationCenter).
struct Notification {
    std::string name;
    // The object that posted it, as an identity only; nullptr when posted without one.
    const void* sender = nullptr;
    // Null when posted without user info.
    plist::Value userInfo;
};

} // namespace vexo::runtime
