// Input events of the ExtensionHost: the C++ calls and their JSON form.

#include <cmath>
#include <limits>
#include <set>

#include "platform/log/Log.h"
#include "platform/runtime/RunLoop.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/EventDecoder.h"
#include "platform/watchkit/ExtensionHost.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Menu.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/Slider.h"
#include "platform/watchkit/Switch.h"
#include "platform/watchkit/Table.h"

namespace vexo::watchkit {

namespace {

constexpr std::string_view kComponent = "watchkit";

EventResult refused(std::string_view event, const std::string& reason) {
    std::string message = std::string(event) + ": " + reason;
    log::info(kComponent, "input refused: " + message);
    return eventRefused(std::move(message));
}

std::string inQuotes(std::string_view text) {
    return "'" + std::string(text) + "'";
}

} // namespace

struct ExtensionHost::Target {
    std::shared_ptr<InterfaceObject> object;
    Slot* slot = nullptr;
    // The table whose row holds the object, if any.
    Table* table = nullptr;
    std::size_t rowIndex = 0;
};

std::optional<std::string> ExtensionHost::refusalWhileCovered(std::string_view) const {
    Slot* visible = visibleSlot();
    if (!visible)
        return std::string("nothing is on screen; the application has not started");
    if (visible->screen->menu().isOpen())
        return "the menu of " + inQuotes(visible->screen->id()) + " covers the screen";
    return std::nullopt;
}

std::optional<ExtensionHost::Target> ExtensionHost::findTarget(std::string_view objectId, std::string_view,
                                                               std::string& error) const {
    for (Slot* slot : liveSlots()) {
        std::optional<ObjectLocation> location = slot->screen->locate(objectId);
        if (!location)
            continue;
        if (slot != visibleSlot()) {
            error = "object " + inQuotes(objectId) + " is on screen " + inQuotes(slot->screen->id()) + " (" +
                    slot->layout->identifier + "), which is not the one shown";
            return std::nullopt;
        }
        if (location->hidden) {
            error = "object " + inQuotes(objectId) + " is hidden";
            return std::nullopt;
        }
        return Target{location->object, slot, location->table, location->rowIndex};
    }
    error = "no object " + inQuotes(objectId) + " on any screen";
    return std::nullopt;
}

EventResult ExtensionHost::sendAction(const Target& target, const ActionValue& value) {
    const ObjectLayout& layout = target.object->layout();
    if (layout.segue) {
        Context context;
        callController(target.slot->controller, "contextForSegueWithIdentifier", [&](InterfaceController& controller) {
            context = controller.contextForSegueWithIdentifier(layout.segue->identifier);
        });
        return present(target.slot, layout.segue->destination, std::move(context));
    }
    if (!layout.action)
        return EventResult();
    const std::string& name = *layout.action;
    if (target.table) {
        const TableRow& row = target.table->rows().at(target.rowIndex);
        const auto* action = row.rowClass ? row.rowClass->description.action(name) : nullptr;
        if (!action)
            return Error(ErrorKind::NotFound, "the row controller of row " + std::to_string(target.rowIndex) +
                                                  " has no action " + inQuotes(name));
        std::shared_ptr<RowController> controller = row.controller;
        try {
            action->invoke(*controller, value);
        } catch (const std::exception& exception) {
            std::string message = "action " + inQuotes(name) + " of row " + std::to_string(target.rowIndex) +
                                  " threw: " + exception.what();
            log::error(kComponent, message);
            return Error(ErrorKind::SystemFailure, message);
        }
        return EventResult();
    }
    const auto* action = target.slot->controllerClass->description.action(name);
    if (!action)
        return Error(ErrorKind::NotFound,
                     "class " + target.slot->layout->className + " has no action " + inQuotes(name));
    callController(target.slot->controller, name,
                   [&](InterfaceController& controller) { action->invoke(controller, value); });
    return EventResult();
}

EventResult ExtensionHost::tap(std::string_view objectId) {
    return dispatch([&] {
        if (auto refusal = refusalWhileCovered("tap"))
            return refused("tap", *refusal);
        std::string error;
        std::optional<Target> target = findTarget(objectId, "tap", error);
        if (!target)
            return refused("tap", error);
        if (target->object->kind() != ObjectKind::Button) {
            return refused("tap", "object " + inQuotes(objectId) + " is a " +
                                      std::string(kindName(target->object->kind())) + "; only buttons take taps");
        }
        if (!static_cast<Button&>(*target->object).isEnabled())
            return refused("tap", "button " + inQuotes(objectId) + " is disabled");
        if (!target->object->layout().action && !target->object->layout().segue)
            return refused("tap", "button " + inQuotes(objectId) + " has no action");
        return sendAction(*target, std::monostate{});
    });
}

EventResult ExtensionHost::selectRow(std::string_view tableId, std::size_t rowIndex) {
    return dispatch([&] {
        if (auto refusal = refusalWhileCovered("selectRow"))
            return refused("selectRow", *refusal);
        std::string error;
        std::optional<Target> target = findTarget(tableId, "selectRow", error);
        if (!target)
            return refused("selectRow", error);
        if (target->object->kind() != ObjectKind::Table)
            return refused("selectRow", "object " + inQuotes(tableId) + " is no table");
        auto& table = static_cast<Table&>(*target->object);
        if (rowIndex >= table.numberOfRows()) {
            return refused("selectRow", "table " + inQuotes(tableId) + " has no row " + std::to_string(rowIndex) +
                                            " (it has " + std::to_string(table.numberOfRows()) + ")");
        }
        const TableRow& row = table.rows()[rowIndex];
        if (!row.type || !row.type->selectable)
            return refused("selectRow",
                           "row " + std::to_string(rowIndex) + " (" + row.typeName + ") cannot be selected");
        std::shared_ptr<InterfaceObject> keep = target->object;
        callController(target->slot->controller, "tableDidSelectRowAtIndex",
                       [&](InterfaceController& controller) { controller.tableDidSelectRowAtIndex(table, rowIndex); });
        return EventResult();
    });
}

EventResult ExtensionHost::slide(std::string_view sliderId, float value) {
    return dispatch([&] {
        if (auto refusal = refusalWhileCovered("slide"))
            return refused("slide", *refusal);
        std::string error;
        std::optional<Target> target = findTarget(sliderId, "slide", error);
        if (!target)
            return refused("slide", error);
        if (target->object->kind() != ObjectKind::Slider)
            return refused("slide", "object " + inQuotes(sliderId) + " is no slider");
        auto& slider = static_cast<Slider&>(*target->object);
        if (!slider.isEnabled())
            return refused("slide", "slider " + inQuotes(sliderId) + " is disabled");
        float moved = slider.clamped(value);
        slider.setValue(moved);
        return sendAction(*target, moved);
    });
}

EventResult ExtensionHost::stepSlider(std::string_view sliderId, int steps) {
    std::shared_ptr<InterfaceObject> found = object(sliderId);
    if (!found || found->kind() != ObjectKind::Slider)
        return slide(sliderId, 0); // refused there, with the reason
    return slide(sliderId, static_cast<Slider&>(*found).stepped(steps));
}

EventResult ExtensionHost::flip(std::string_view switchId) {
    return dispatch([&] {
        if (auto refusal = refusalWhileCovered("flip"))
            return refused("flip", *refusal);
        std::string error;
        std::optional<Target> target = findTarget(switchId, "flip", error);
        if (!target)
            return refused("flip", error);
        if (target->object->kind() != ObjectKind::Switch)
            return refused("flip", "object " + inQuotes(switchId) + " is no switch");
        auto& control = static_cast<Switch&>(*target->object);
        if (!control.isEnabled())
            return refused("flip", "switch " + inQuotes(switchId) + " is disabled");
        bool on = !control.isOn();
        control.setOn(on);
        return sendAction(*target, on);
    });
}

EventResult ExtensionHost::swipeToPage(std::size_t pageIndex) {
    return dispatch([&] {
        if (!m_started)
            return refused("swipe", "the application has not started");
        if (m_glanceVisible)
            return refused("swipe", "the glance is shown");
        if (!m_modals.empty())
            return refused("swipe", "modal screen " + inQuotes(m_modals.back()->screen->id()) + " covers the pages");
        if (auto refusal = refusalWhileCovered("swipe"))
            return refused("swipe", *refusal);
        if (pageIndex >= m_pages.size())
            return refused("swipe", "there is no page " + std::to_string(pageIndex) + " (there are " +
                                        std::to_string(m_pages.size()) + ")");
        showPage(pageIndex);
        return EventResult();
    });
}

EventResult ExtensionHost::openMenu() {
    return dispatch([&] {
        Slot* visible = visibleSlot();
        if (!visible)
            return refused("openMenu", "nothing is on screen; the application has not started");
        if (visible->role == Role::Glance)
            return refused("openMenu", "the glance has no menu");
        Menu& menu = visible->screen->menu();
        if (menu.items().empty())
            return refused("openMenu", "screen " + inQuotes(visible->screen->id()) + " has no menu items");
        menu.setOpen(true);
        return EventResult();
    });
}

EventResult ExtensionHost::pickMenuItem(std::size_t itemIndex) {
    return dispatch([&] {
        Slot* visible = visibleSlot();
        if (!visible || !visible->screen->menu().isOpen())
            return refused("pickMenuItem", "no menu is open");
        Menu& menu = visible->screen->menu();
        if (itemIndex >= menu.items().size()) {
            return refused("pickMenuItem", "the menu has no item " + std::to_string(itemIndex) + " (it has " +
                                               std::to_string(menu.items().size()) + ")");
        }
        std::string name = menu.items()[itemIndex].action;
        menu.setOpen(false);
        const auto* action = visible->controllerClass->description.action(name);
        if (!action)
            return refused("pickMenuItem", "class " + visible->layout->className + " has no action " + inQuotes(name));
        callController(visible->controller, name,
                       [&](InterfaceController& controller) { action->invoke(controller, std::monostate{}); });
        return EventResult();
    });
}

EventResult ExtensionHost::closeMenu() {
    return dispatch([&] {
        Slot* visible = visibleSlot();
        if (!visible || !visible->screen->menu().isOpen())
            return refused("closeMenu", "no menu is open");
        visible->screen->menu().setOpen(false);
        return EventResult();
    });
}

EventResult ExtensionHost::closeModal() {
    return dispatch([&] {
        if (m_glanceVisible)
            return refused("closeModal", "the glance is shown");
        if (m_modals.empty())
            return refused("closeModal", "no modal screen is shown");
        if (auto refusal = refusalWhileCovered("closeModal"))
            return refused("closeModal", *refusal);
        dismiss(*m_modals.back());
        return EventResult();
    });
}

EventResult ExtensionHost::showGlance() {
    return dispatch([&] {
        if (!m_layout.glance)
            return refused("showGlance", "the layout has no glance");
        if (m_glanceVisible)
            return refused("showGlance", "the glance is shown already");
        if (!m_glance) {
            std::string error;
            m_glance = makeSlot(Role::Glance, *m_layout.controller(*m_layout.glance), "glance", error);
            if (!m_glance)
                return refused("showGlance", error);
            scheduleFlush(m_changes.screenAdded(m_glance->screen->id()));
            awake(*m_glance, Context{});
        }
        if (Slot* application = applicationSlot())
            deactivate(*application);
        m_glanceVisible = true;
        noteNavigation();
        activate(*m_glance);
        return EventResult();
    });
}

EventResult ExtensionHost::hideGlance() {
    return dispatch([&] {
        if (!m_glanceVisible)
            return refused("hideGlance", "the glance is not shown");
        deactivate(*m_glance);
        m_glanceVisible = false;
        noteNavigation();
        if (Slot* application = applicationSlot())
            activate(*application);
        return EventResult();
    });
}

EventResult ExtensionHost::deliverNotificationAction(std::string identifier, plist::Value userInfo) {
    return dispatch([&] {
        if (m_glanceVisible) {
            deactivate(*m_glance);
            m_glanceVisible = false;
            noteNavigation();
            if (Slot* application = applicationSlot())
                activate(*application);
        }
        if (!m_started) {
            EventResult started = start();
            if (!started)
                return refused("notificationAction", started.error().message());
        }
        if (m_pages.empty())
            return refused("notificationAction", "the layout has no pages");
        callController(m_pages.front()->controller, "handleActionWithIdentifier", [&](InterfaceController& controller) {
            controller.handleActionWithIdentifier(identifier, userInfo);
        });
        return EventResult();
    });
}

// JSON events.

namespace {

template <class... Handlers> struct Overloaded : Handlers... { using Handlers::operator()...; };
template <class... Handlers> Overloaded(Handlers...) -> Overloaded<Handlers...>;

} // namespace

EventResult ExtensionHost::handleEvent(const nlohmann::json& event) {
    Expected<input::Event> decoded = EventDecoder::decode(event);
    if (!decoded) {
        log::info(kComponent, "malformed input: " + decoded.error().message());
        return std::move(decoded).error();
    }
    return std::visit(Overloaded{
                          [&](const input::Tap& tapEvent) { return tap(tapEvent.object); },
                          [&](const input::SelectRow& select) { return selectRow(select.object, select.row); },
                          [&](const input::Slide& slideEvent) {
                              return slideEvent.value ? slide(slideEvent.object, *slideEvent.value)
                                                      : stepSlider(slideEvent.object, *slideEvent.step);
                          },
                          [&](const input::Flip& flipEvent) {
                              // A switch that shows the state asked for already is left as it is.
                              std::shared_ptr<InterfaceObject> found = object(flipEvent.object);
                              if (flipEvent.on && found && found->kind() == ObjectKind::Switch &&
                                  static_cast<Switch&>(*found).isOn() == *flipEvent.on)
                                  return EventResult();
                              return flip(flipEvent.object);
                          },
                          [&](const input::Swipe& swipe) {
                              if (swipe.page)
                                  return swipeToPage(*swipe.page);
                              if (swipe.direction == input::Swipe::Direction::Left)
                                  return swipeToPage(m_currentPage + 1);
                              if (m_currentPage == 0)
                                  return refused("swipe", "there is no page left of the first");
                              return swipeToPage(m_currentPage - 1);
                          },
                          [&](const input::OpenMenu&) { return openMenu(); },
                          [&](const input::PickMenuItem& pick) { return pickMenuItem(pick.index); },
                          [&](const input::CloseMenu&) { return closeMenu(); },
                          [&](const input::CloseModal&) { return closeModal(); },
                          [&](const input::ShowGlance&) { return showGlance(); },
                          [&](const input::HideGlance&) { return hideGlance(); },
                          [&](const input::NotificationAction& action) {
                              return deliverNotificationAction(action.identifier, action.userInfo);
                          },
                      },
                      *decoded);
}

void ExtensionHost::postEvent(nlohmann::json event, std::function<void(const EventResult&)> completion) {
    m_loop.post(
        [alive = std::weak_ptr<ExtensionHost*>(m_alive), event = std::move(event), completion = std::move(completion)] {
            if (auto host = alive.lock()) {
                EventResult result = (*host)->handleEvent(event);
                if (completion)
                    completion(result);
            } else if (completion) {
                completion(eventRefused("the interface has gone"));
            }
        });
}

} // namespace vexo::watchkit
