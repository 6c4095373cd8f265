#pragma once

#include <string_view>

#include "platform/watchkit/Context.h"

namespace vexo::watchkit {

class InterfaceController;

// What a controller asks of the host that shows it: the navigation operations of the host
// platform. ExtensionHost implements it. Main loop's thread only.
class ControllerHost {
public:
    virtual ~ControllerHost() = default;

    // Presents the layout's controller `name` modally over what is on screen, handing it
    // `context`.
    virtual void presentController(InterfaceController& presenter, std::string_view name, Context context) = 0;
    // Takes `controller`, a modal screen, off the screen with everything presented over it.
    virtual void dismissController(InterfaceController& controller) = 0;
    // Makes `controller`, a page, the current page.
    virtual void becomeCurrentPage(InterfaceController& controller) = 0;

protected:
    ControllerHost() = default;
    ControllerHost(const ControllerHost&) = default;
    ControllerHost& operator=(const ControllerHost&) = default;
};

} // namespace vexo::watchkit
