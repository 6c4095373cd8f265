#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/plist/Value.h"
#include "platform/watchkit/ClassDescription.h"
#include "platform/watchkit/Context.h"

// The base of every screen's controller (the host platform's interface controller).
//
// The host makes a controller with its class's factory (the platform's init), connects its
// outlets, then calls awakeWithContext() once and willActivate() / didDeactivate() in
// pairs as the screen comes and goes; actions and the other callbacks arrive only between
// willActivate() and didDeactivate(). Outlets are connected after the constructor returns,
// so a constructor must not use them.
//
// A subclass declares its outlets and actions in a static template, which the registry
// reads when the class is registered:
//
//     template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
//         c.outlet("bpmLabel", &DeckController::m_bpmLabel);
//         c.action("togglePlayback", &DeckController::togglePlayback);
//     }
//
// Controllers are shared (std::shared_ptr) and outlive their time on screen when others
// hold them; once off screen, navigation calls do nothing and outlets are empty. Every
// member is for the main loop's thread.
namespace vexo::watchkit {

class ControllerHost;
class Screen;
class Table;

class InterfaceController : public std::enable_shared_from_this<InterfaceController> {
public:
    virtual ~InterfaceController();
    InterfaceController(const InterfaceController&) = delete;
    InterfaceController& operator=(const InterfaceController&) = delete;
    InterfaceController(InterfaceController&&) = delete;
    InterfaceController& operator=(InterfaceController&&) = delete;

    // Called once, after the outlets are connected, with what the presenter handed over
    // (empty for pages and the glance). The base does nothing.
    virtual void awakeWithContext(const Context& context);
    // The screen is about to be shown. The base does nothing.
    virtual void willActivate();
    // The screen is no longer shown. The base does nothing.
    virtual void didDeactivate();

    // The user chose the action `identifier` of a local notification whose user info is
    // `localNotificationUserInfo` (null when it had none). The host gives it to the first
    // page, the application's main controller. The base does nothing.
    virtual void handleActionWithIdentifier(const std::string& identifier,
                                            const plist::Value& localNotificationUserInfo);

    // The user selected the row at `rowIndex` of `table`, one of this screen's tables.
    // The base does nothing.
    virtual void tableDidSelectRowAtIndex(Table& table, std::size_t rowIndex);

    // The context to hand the controller that the layout's segue `segueIdentifier` presents
    // from this screen. The base hands an empty one.
    [[nodiscard]] virtual Context contextForSegueWithIdentifier(std::string_view segueIdentifier);

    // Presents the layout's controller `name` modally, over whatever is on screen, with
    // `context`. Done once the current callback returns; an unknown name is logged.
    void presentControllerWithName(std::string_view name, Context context = {});
    // Takes this modal screen, and anything presented over it, off the screen. Pages and
    // the glance cannot be dismissed (logged at debug level).
    void dismissController();
    // Makes this page the current page; other controllers cannot (logged at debug level).
    void becomeCurrentPage();

    // The force-touch menu of this screen. Items name one of the class's plain actions; a
    // menu holds at most four. An unknown action or a fifth item is refused with a log line.
    void clearAllMenuItems();
    void addMenuItemWithImageNamed(std::string imageName, std::string title, std::string action);

    // Host side. Links the controller to the host and its screen; `description` is its
    // class's. REQUIRES: all three outlive the link (detach() ends it).
    void attach(ControllerHost& host, Screen& screen, const ClassDescription<InterfaceController>& description);
    // Host side. Ends the link: the controller is off screen for good.
    void detach();
    // The screen the controller is shown on, or nullptr once it is off screen.
    [[nodiscard]] Screen* screen() const { return m_screen; }

protected:
    InterfaceController() = default;

private:
    ControllerHost* m_host = nullptr;
    Screen* m_screen = nullptr;
    const ClassDescription<InterfaceController>* m_description = nullptr;
};

} // namespace vexo::watchkit
