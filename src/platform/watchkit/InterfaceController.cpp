#include "platform/watchkit/InterfaceController.h"

#include "platform/log/Log.h"
#include "platform/watchkit/ControllerHost.h"
#include "platform/watchkit/Menu.h"
#include "platform/watchkit/Screen.h"

namespace vexo::watchkit {

namespace {

constexpr std::string_view kComponent = "watchkit";

} // namespace

InterfaceController::~InterfaceController() = default;

void InterfaceController::awakeWithContext(const Context&) {}

void InterfaceController::willActivate() {}

void InterfaceController::didDeactivate() {}

void InterfaceController::handleActionWithIdentifier(const std::string&, const plist::Value&) {}

void InterfaceController::tableDidSelectRowAtIndex(Table&, std::size_t) {}

Context InterfaceController::contextForSegueWithIdentifier(std::string_view) {
    return {};
}

void InterfaceController::presentControllerWithName(std::string_view name, Context context) {
    if (!m_host) {
        log::debug(kComponent, "presentControllerWithName(" + std::string(name) + ") from a controller off screen");
        return;
    }
    m_host->presentController(*this, name, std::move(context));
}

void InterfaceController::dismissController() {
    if (!m_host) {
        log::debug(kComponent, "dismissController from a controller off screen");
        return;
    }
    m_host->dismissController(*this);
}

void InterfaceController::becomeCurrentPage() {
    if (!m_host) {
        log::debug(kComponent, "becomeCurrentPage from a controller off screen");
        return;
    }
    m_host->becomeCurrentPage(*this);
}

void InterfaceController::clearAllMenuItems() {
    if (m_screen)
        m_screen->menu().clearAllMenuItems();
    else
        log::debug(kComponent, "clearAllMenuItems from a controller off screen");
}

void InterfaceController::addMenuItemWithImageNamed(std::string imageName, std::string title, std::string action) {
    if (!m_screen || !m_description) {
        log::debug(kComponent, "addMenuItemWithImageNamed from a controller off screen");
        return;
    }
    const auto* declared = m_description->action(action);
    if (!declared || declared->kind != ActionKind::Plain) {
        log::error(kComponent, "screen " + m_screen->id() + " (" + m_screen->layout().className + "): menu item '" +
                                   title + "' names '" + action +
                                   "', which is no plain action of the class; not added");
        return;
    }
    if (!m_screen->menu().addMenuItemWithImageNamed(std::move(imageName), title, std::move(action))) {
        log::error(kComponent, "screen " + m_screen->id() + ": menu item '" + title + "' not added; a menu holds " +
                                   std::to_string(Menu::kMaxItems) + " items");
    }
}

void InterfaceController::attach(ControllerHost& host, Screen& screen,
                                 const ClassDescription<InterfaceController>& description) {
    m_host = &host;
    m_screen = &screen;
    m_description = &description;
}

void InterfaceController::detach() {
    m_host = nullptr;
    m_screen = nullptr;
    m_description = nullptr;
}

} // namespace vexo::watchkit
