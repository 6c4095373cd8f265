#pragma once

#include "platform/plist/Value.h"

// The one-way call that wakes the phone application and hands it one dictionary (the host
// platform's openParentApplication:reply:, always without a reply): no answer comes back,
// and whether the dictionary arrived is never known.
//
// The program uses SocketParentApplication; model and screen tests record what would have
// gone with a double of their own.
namespace vexo::ipc {

class ParentApplication {
public:
    ParentApplication(const ParentApplication&) = delete;
    ParentApplication& operator=(const ParentApplication&) = delete;
    ParentApplication(ParentApplication&&) = delete;
    ParentApplication& operator=(ParentApplication&&) = delete;
    virtual ~ParentApplication();

    // Hands `userInfo`, a dictionary, to the phone application and returns at once. Never
    // throws; what cannot be delivered is dropped with a debug log line. Main-loop thread only.
    virtual void openParentApplication(const plist::Value& userInfo) = 0;

protected:
    ParentApplication() = default;
};

} // namespace vexo::ipc
