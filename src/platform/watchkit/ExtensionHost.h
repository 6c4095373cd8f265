#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/plist/Value.h"
#include "platform/watchkit/ChangeSink.h"
#include "platform/watchkit/ChangeStream.h"
#include "platform/watchkit/ClassDescription.h"
#include "platform/watchkit/Context.h"
#include "platform/watchkit/ControllerHost.h"
#include "platform/watchkit/EventResult.h"
#include "platform/watchkit/ImageStore.h"
#include "platform/watchkit/InterfaceLayout.h"
#include "platform/watchkit/SnapshotWriter.h"

namespace vexo::runtime {
class RunLoop;
}
namespace vexo::text {
class Localization;
}

// Runs the watch application's interface as the host platform runs an extension: it makes
// the controllers the layout names, shows them, and calls them in the platform's order.
//
// - start(): every page in order gets its factory (init), its outlets, and
//   awakeWithContext() with an empty context; then the first page gets willActivate().
// - Page changes (a swipe, becomeCurrentPage()): the page left gets didDeactivate(), then
//   the new one willActivate().
// - A modal presentation: the new controller is made (init, outlets, awakeWithContext()
//   with the presenter's context), then the screen it covers gets didDeactivate(), then the
//   new one willActivate(). Dismissal: the modal (and any modal over it) gets
//   didDeactivate() and is released; the screen under it gets willActivate().
// - The glance runs on its own: made on first show (init, awakeWithContext() with an empty
//   context) and kept; showing it covers the application (whose screen gets didDeactivate()
//   first) and calls its willActivate(); hiding it calls its didDeactivate() and then the
//   application's screen's willActivate().
// - A local-notification action goes, as on the host platform, to the application's main
//   controller: the first page, whichever page is current (the mixer page, for one, does
//   not handle them). The application comes to the front first: the glance is hidden, and
//   the application is started when it was not.
//
// At most one screen is active at a time. Navigation asked for by a controller is done once
// the callback it came from returns (or, when it came from outside any callback of ours,
// such as a timer, on the next turn of the loop), in the order asked. An exception thrown by
// a controller is caught at the callback, logged, and reported in the event's result; it never
// crosses the run loop.
//
// What is on screen is readable as JSON at any time (snapshot()), and as a stream of change
// records, one batch per loop turn (subscribe()). Input arrives as C++ calls or as JSON
// events (handleEvent()); each names objects by the identifiers of the snapshot and is
// refused, with a reason, when it does not fit what is on screen.
//
// Every member is for the main loop's thread, except postEvent(), postSnapshot() and
// imageWithId(), which any thread may call while the host lives.
//
// Snapshot format:
//
//   {"revision": n,                       the last change batch sent before it
//    "screen": {"width": 312, "height": 390},
//    "started": bool, "currentPage": i, "visibleScreen": "<screen id>" | null,
//    "pages": [screen, ...], "modals": [screen, ...] (bottom first),
//    "glance": {"visible": bool, "screen": screen | null},
//    "locale": {"language": "de", "identifier": "de-DE", "texts": {"Cancel": "Abbrechen", ...}}}
//
//   "locale" is the watch's, for what the page draws itself rather than the application:
//   the language of the string tables used, the locale of dates and numbers as a BCP 47
//   tag, and the platform's own texts (kPlatformTexts) from the string tables, keyed by
//   their English text.
//
//   screen = {"id": "page-0" | "modal-<n>" | "glance", "controller": "<layout name>",
//             "class": "<class>", "role": "page" | "modal" | "glance", "title": s | null,
//             "accessibilityLabel": s | null, "active": bool, "context": {...},
//             "contentHeight": pixels,
//             "objects": [object, ...], "menu": object}
//
//   object = {"id", "kind", "outlet"?, "frame": {"x", "y", "width", "height"}, "hidden",
//             "action"?, "segue"?, "style"?, "accessibilityLabel"?, the kind's state,
//             "children"?: [object, ...]}
//     group:  backgroundImage, backgroundColor, animation? {frames, duration, repeatCount,
//             running, startCount}
//     button: title, backgroundImage, backgroundColor, enabled, adjusts? {"slider": id,
//             "by": steps} (a tap steps that slider instead of sending an action)
//     label:  text, textColor           image: image
//     slider: value, minimum, maximum, steps, color, enabled
//     switch: on, color, title, enabled
//     timer:  date, running, stoppedAt (seconds since 1970)
//     table:  rows: [{"rowType", "selectable", "group": object}, ...]
//     menu:   items: [{"image": {"name"}, "title", "action"}], open
//   An image is null, {"name": "<asset>"} or {"data": "<id>", "bytes", "type", "width",
//   "height"}, the bytes being served by imageWithId(); a colour is {"red", "green",
//   "blue", "alpha"} or null. Frames are pixels from the top left of the screen's content.
//   Accessibility labels are the layout's, localised; a button's follows its background
//   image where the layout names one per image.
//
// Change batches: {"revision": n, "changes": [record, ...]}, records in this order:
//   {"change": "navigation", ...the snapshot's started, currentPage, visibleScreen, plus
//    "pages": [ids], "modals": [ids], "glance": {"visible", "screen": id | null},
//    "active": id | null}
//   {"change": "screenRemoved", "screen": id}
//   {"change": "screenAdded", "screen": screen}
//   {"change": "object", "screen": id, "object": object}   children by id only; a table's
//                                                           rows whole; also when only its
//                                                           frame moved
namespace vexo::watchkit {

class ControllerRegistry;
class InterfaceController;
class InterfaceObject;
class Screen;
struct ControllerClass;

class ExtensionHost final : public ControllerHost, private ChangeSink {
public:
    struct Options {
        // The wall clock of timer objects; the system clock when empty.
        std::function<std::chrono::system_clock::time_point()> clock;
        // Localises the layout's texts; they are shown as written when nullptr.
        const text::Localization* localization = nullptr;
        // The locale of dates and numbers, POSIX style ("de_DE"); "en_US" when empty.
        std::string locale;
    };

    // Texts that the platform draws, not the application: the force-touch menu's cancel
    // button and the name a screen reader gives it.
    static constexpr std::string_view kPlatformTexts[] = {"Cancel", "Close the menu"};

    // REQUIRES: `loop` and `registry` outlive the host; `layout` was loaded against
    // `registry`. Nothing is made until start().
    ExtensionHost(runtime::RunLoop& loop, const ControllerRegistry& registry, InterfaceLayout layout, Options options);
    ExtensionHost(runtime::RunLoop& loop, const ControllerRegistry& registry, InterfaceLayout layout);
    // Releases every controller without lifecycle calls, as a process that ends does; any
    // controller still held elsewhere is off screen for good.
    ~ExtensionHost() override;
    ExtensionHost(const ExtensionHost&) = delete;
    ExtensionHost& operator=(const ExtensionHost&) = delete;
    ExtensionHost(ExtensionHost&&) = delete;
    ExtensionHost& operator=(ExtensionHost&&) = delete;

    [[nodiscard]] const InterfaceLayout& layout() const { return m_layout; }

    // Makes the pages and shows the first. Refused when started already, or when a page's
    // class is not registered or gives no controller (then nothing is kept).
    EventResult start();
    [[nodiscard]] bool isStarted() const { return m_started; }

    // Input, as the user gives it on the watch. Each is refused (with the reason, and
    // nothing done) when the object is unknown, not on the visible screen, hidden, disabled
    // or of another kind, or when the menu covers the screen.
    //
    // A tap on a button sends its action to its controller (or row controller) or performs
    // its segue. selectRow() calls tableDidSelectRowAtIndex() unless the row type is not
    // selectable. slide() moves a slider to `value` (clamped to its range), stepSlider() by
    // `steps` steps, and flip() turns a switch over; each sends the object's action with the
    // new value.
    EventResult tap(std::string_view objectId);
    EventResult selectRow(std::string_view tableId, std::size_t rowIndex);
    EventResult slide(std::string_view sliderId, float value);
    EventResult stepSlider(std::string_view sliderId, int steps);
    EventResult flip(std::string_view switchId);
    // Shows page `pageIndex`; refused while a modal screen or the glance covers the pages.
    EventResult swipeToPage(std::size_t pageIndex);
    // The force-touch menu of the visible screen: open it (refused when it has no items),
    // pick item `itemIndex` (which closes it and sends the item's action), close it.
    EventResult openMenu();
    EventResult pickMenuItem(std::size_t itemIndex);
    EventResult closeMenu();
    // The close control of the topmost modal screen.
    EventResult closeModal();
    EventResult showGlance();
    EventResult hideGlance();
    // The user chose action `identifier` of a local notification with `userInfo`.
    EventResult deliverNotificationAction(std::string identifier, plist::Value userInfo);

    // One input event in the JSON form of EventDecoder. A malformed event is refused with
    // the reason (an InvalidData error); one that does not fit the screen as above.
    EventResult handleEvent(const nlohmann::json& event);

    // Thread-safe: queues handleEvent(event) on the main loop; `completion` (when set)
    // receives its result there. REQUIRES: the host outlives this call (not the event).
    void postEvent(nlohmann::json event, std::function<void(const EventResult&)> completion = {});

    // Everything on screen, in the snapshot format above.
    [[nodiscard]] nlohmann::json snapshot() const;
    // Thread-safe: queues snapshot() on the main loop and hands it to `completion` there.
    void postSnapshot(std::function<void(const nlohmann::json&)> completion);

    // Calls `listener` on the main loop with each batch of change records: at most one
    // batch per loop turn, {"revision": n, "changes": [...]}. Gives the number for
    // unsubscribe(). A new listener takes a snapshot() first.
    std::uint64_t subscribe(std::function<void(const nlohmann::json& batch)> listener);
    void unsubscribe(std::uint64_t subscription);
    // Sends the pending batch now rather than at the end of the loop turn.
    void flushChanges();

    // Thread-safe: the image data a snapshot names by identifier, or nullptr.
    [[nodiscard]] std::shared_ptr<const ImageData> imageWithId(std::string_view id) const;

    // What is on screen, for programs and tests.
    [[nodiscard]] std::size_t currentPage() const { return m_currentPage; }
    [[nodiscard]] std::size_t pageCount() const { return m_pages.size(); }
    [[nodiscard]] std::shared_ptr<InterfaceController> pageController(std::size_t index) const;
    // The modal controllers, the first presented first.
    [[nodiscard]] std::vector<std::shared_ptr<InterfaceController>> modalControllers() const;
    [[nodiscard]] std::shared_ptr<InterfaceController> glanceController() const;
    [[nodiscard]] bool isGlanceVisible() const { return m_glanceVisible; }
    // The controller whose screen the user sees: the glance, the top modal or the current page.
    [[nodiscard]] std::shared_ptr<InterfaceController> visibleController() const;
    // The object with identifier `id` on any screen, or nullptr.
    [[nodiscard]] std::shared_ptr<InterfaceObject> object(std::string_view id) const;
    // The object behind outlet `outlet` of `controller`'s screen, or nullptr.
    [[nodiscard]] std::shared_ptr<InterfaceObject> objectForOutlet(const InterfaceController& controller,
                                                                   std::string_view outlet) const;

    // ControllerHost: what controllers ask for; done once the current callback returns.
    void presentController(InterfaceController& presenter, std::string_view name, Context context) override;
    void dismissController(InterfaceController& controller) override;
    void becomeCurrentPage(InterfaceController& controller) override;

private:
    enum class Role { Page, Modal, Glance };

    // One controller on screen with its objects.
    struct Slot {
        Role role = Role::Page;
        const ControllerLayout* layout = nullptr;
        const ControllerClass* controllerClass = nullptr;
        std::shared_ptr<InterfaceController> controller;
        std::unique_ptr<Screen> screen;
        Context context;
        bool active = false;
    };

    struct NavigationRequest {
        enum class Kind { Present, Dismiss, BecomeCurrentPage };
        Kind kind;
        std::weak_ptr<InterfaceController> from;
        const InterfaceController* fromAddress;
        std::string name;
        Context context;
    };

    // ChangeSink.
    void objectDidChange(Screen& screen, InterfaceObject& object) override;

    // Lifecycle and navigation (ExtensionHost.cpp).
    [[nodiscard]] std::unique_ptr<Slot> makeSlot(Role role, const ControllerLayout& layout, std::string screenId,
                                                 std::string& error);
    void dropSlot(std::unique_ptr<Slot> slot);
    void awake(Slot& slot, const Context& context);
    void activate(Slot& slot);
    void deactivate(Slot& slot);
    [[nodiscard]] Slot* visibleSlot() const;
    [[nodiscard]] Slot* applicationSlot() const;
    [[nodiscard]] Slot* slotOf(const InterfaceController* controller) const;
    [[nodiscard]] Slot* slotOfScreen(const Screen* screen) const;
    [[nodiscard]] std::vector<Slot*> liveSlots() const;
    EventResult present(Slot* presenter, std::string_view name, Context context);
    void dismiss(Slot& modal);
    void showPage(std::size_t index);
    void request(NavigationRequest request);
    void drainNavigation();
    // Runs `work` as one callback of ours: navigation it asks for is done afterwards, and an
    // exception it or a controller throws becomes the result.
    EventResult dispatch(const std::function<EventResult()>& work);
    // Calls `call` on `controller`, catching what it throws (logged, and kept for the result).
    void callController(const std::shared_ptr<InterfaceController>& controller, std::string_view what,
                        const std::function<void(InterfaceController&)>& call);
    void noteNavigation();
    void scheduleFlush(bool firstOfBatch);

    // Views of what is on screen for the snapshot writer (ExtensionHost.cpp).
    [[nodiscard]] SnapshotWriter::ScreenView viewOf(const Slot& slot) const;
    [[nodiscard]] SnapshotWriter::Navigation navigationView() const;
    // The snapshot's "locale".
    [[nodiscard]] nlohmann::json localeRecord() const;

    // Input (ExtensionHostEvents.cpp).
    struct Target;
    [[nodiscard]] std::optional<Target> findTarget(std::string_view objectId, std::string_view event,
                                                   std::string& error) const;
    EventResult sendAction(const Target& target, const ActionValue& value);
    [[nodiscard]] std::optional<std::string> refusalWhileCovered(std::string_view event) const;

    runtime::RunLoop& m_loop;
    const ControllerRegistry& m_registry;
    InterfaceLayout m_layout;
    Options m_options;
    ImageStore m_images;
    ChangeStream m_changes;
    SnapshotWriter m_writer;

    std::vector<std::unique_ptr<Slot>> m_pages;
    std::size_t m_currentPage = 0;
    std::vector<std::unique_ptr<Slot>> m_modals;
    std::unique_ptr<Slot> m_glance;
    bool m_glanceVisible = false;
    bool m_started = false;
    std::uint64_t m_nextModal = 1;

    int m_dispatchDepth = 0;
    std::deque<NavigationRequest> m_navigation;
    bool m_drainPosted = false;
    std::optional<std::string> m_callbackError;

    bool m_flushPosted = false;
    std::uint64_t m_revision = 0;

    // Work posted to the loop holds this weakly and does nothing once the host is gone.
    std::shared_ptr<ExtensionHost*> m_alive;
};

} // namespace vexo::watchkit
