#include "platform/watchkit/ExtensionHost.h"

#include <algorithm>
#include <exception>

#include "platform/log/Log.h"
#include "platform/runtime/RunLoop.h"
#include "platform/text/Localization.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/InterfaceObject.h"
#include "platform/watchkit/Menu.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/StackLayout.h"

namespace vexo::watchkit {

namespace {

constexpr std::string_view kComponent = "watchkit";
constexpr std::string_view kDefaultLocale = "en_US";

std::string_view roleName(int role) {
    static constexpr std::string_view names[] = {"page", "modal", "glance"};
    return names[role];
}

} // namespace

ExtensionHost::ExtensionHost(runtime::RunLoop& loop, const ControllerRegistry& registry, InterfaceLayout layout,
                             Options options)
    : m_loop(loop),
      m_registry(registry),
      m_layout(std::move(layout)),
      m_options(std::move(options)),
      m_writer(m_layout.screenWidth, m_layout.screenHeight),
      m_alive(std::make_shared<ExtensionHost*>(this)) {}

ExtensionHost::ExtensionHost(runtime::RunLoop& loop, const ControllerRegistry& registry, InterfaceLayout layout)
    : ExtensionHost(loop, registry, std::move(layout), Options{}) {}

ExtensionHost::~ExtensionHost() {
    m_alive.reset();
    for (Slot* slot : liveSlots())
        slot->controller->detach();
}

// Lifecycle and navigation.

EventResult ExtensionHost::start() {
    if (m_started)
        return eventRefused("the application is started already");
    return dispatch([&]() -> EventResult {
        std::vector<std::unique_ptr<Slot>> pages;
        for (std::size_t i = 0; i < m_layout.pages.size(); ++i) {
            const ControllerLayout* layout = m_layout.controller(m_layout.pages[i]);
            std::string error;
            std::unique_ptr<Slot> page =
                layout ? makeSlot(Role::Page, *layout, "page-" + std::to_string(i), error) : nullptr;
            if (!page) {
                for (auto& made : pages)
                    dropSlot(std::move(made));
                return Error(ErrorKind::NotFound,
                             "cannot start: " +
                                 (layout ? error : "page '" + m_layout.pages[i] + "' is not in the layout"));
            }
            awake(*page, Context{});
            pages.push_back(std::move(page));
        }
        m_pages = std::move(pages);
        m_currentPage = 0;
        m_started = true;
        for (const auto& page : m_pages)
            scheduleFlush(m_changes.screenAdded(page->screen->id()));
        noteNavigation();
        if (!m_pages.empty() && !m_glanceVisible && m_modals.empty())
            activate(*m_pages.front());
        return EventResult();
    });
}

std::unique_ptr<ExtensionHost::Slot> ExtensionHost::makeSlot(Role role, const ControllerLayout& layout,
                                                             std::string screenId, std::string& error) {
    const ControllerClass* controllerClass = m_registry.controllerClass(layout.className);
    if (!controllerClass) {
        error = "controller '" + layout.identifier + "': class " + layout.className + " is not registered";
        return nullptr;
    }
    std::shared_ptr<InterfaceController> controller;
    try {
        controller = controllerClass->factory();
    } catch (const std::exception& exception) {
        error = "controller '" + layout.identifier + "': making a " + layout.className + " threw: " + exception.what();
        return nullptr;
    }
    if (!controller) {
        error = "controller '" + layout.identifier + "': class " + layout.className + " made no controller";
        return nullptr;
    }
    auto slot = std::make_unique<Slot>();
    slot->role = role;
    slot->layout = &layout;
    slot->controllerClass = controllerClass;
    slot->controller = std::move(controller);
    ScreenServices services{this, &m_images, &m_registry, m_options.clock, m_options.localization};
    slot->screen = std::make_unique<Screen>(std::move(screenId), layout, std::move(services));
    slot->screen->connectOutlets(*slot->controller, controllerClass->description);
    slot->controller->attach(*this, *slot->screen, controllerClass->description);
    // Frames as built are the ones listeners get with the new screen.
    StackLayout::Result built = StackLayout::layoutScreen(*slot->screen, m_layout.screenWidth, m_layout.screenHeight);
    for (const auto& [object, frame] : built.frames)
        object->setReportedFrame(frame);
    return slot;
}

void ExtensionHost::dropSlot(std::unique_ptr<Slot> slot) {
    if (!slot)
        return;
    scheduleFlush(m_changes.screenRemoved(slot->screen->id()));
    slot->controller->detach();
    // The screen (and its objects) goes before the controller, which others may keep.
    slot->screen.reset();
    slot.reset();
}

void ExtensionHost::awake(Slot& slot, const Context& context) {
    callController(slot.controller, "awakeWithContext",
                   [&context](InterfaceController& controller) { controller.awakeWithContext(context); });
}

void ExtensionHost::activate(Slot& slot) {
    if (slot.active)
        return;
    slot.active = true;
    noteNavigation();
    callController(slot.controller, "willActivate", [](InterfaceController& controller) { controller.willActivate(); });
}

void ExtensionHost::deactivate(Slot& slot) {
    if (!slot.active)
        return;
    slot.active = false;
    slot.screen->menu().setOpen(false);
    noteNavigation();
    callController(slot.controller, "didDeactivate",
                   [](InterfaceController& controller) { controller.didDeactivate(); });
}

ExtensionHost::Slot* ExtensionHost::visibleSlot() const {
    if (m_glanceVisible && m_glance)
        return m_glance.get();
    return applicationSlot();
}

ExtensionHost::Slot* ExtensionHost::applicationSlot() const {
    if (!m_modals.empty())
        return m_modals.back().get();
    if (m_started && m_currentPage < m_pages.size())
        return m_pages[m_currentPage].get();
    return nullptr;
}

std::vector<ExtensionHost::Slot*> ExtensionHost::liveSlots() const {
    std::vector<Slot*> slots;
    for (const auto& page : m_pages)
        slots.push_back(page.get());
    for (const auto& modal : m_modals)
        slots.push_back(modal.get());
    if (m_glance)
        slots.push_back(m_glance.get());
    return slots;
}

ExtensionHost::Slot* ExtensionHost::slotOf(const InterfaceController* controller) const {
    for (Slot* slot : liveSlots()) {
        if (slot->controller.get() == controller)
            return slot;
    }
    return nullptr;
}

ExtensionHost::Slot* ExtensionHost::slotOfScreen(const Screen* screen) const {
    for (Slot* slot : liveSlots()) {
        if (slot->screen.get() == screen)
            return slot;
    }
    return nullptr;
}

EventResult ExtensionHost::present(Slot* presenter, std::string_view name, Context context) {
    const ControllerLayout* layout = m_layout.controller(name);
    std::string from = presenter ? " from '" + presenter->layout->identifier + "'" : std::string();
    if (!layout) {
        log::error(kComponent,
                   "presentControllerWithName" + from + ": the layout has no controller '" + std::string(name) + "'");
        return Error(ErrorKind::NotFound, "the layout has no controller '" + std::string(name) + "'");
    }
    std::string error;
    std::unique_ptr<Slot> modal = makeSlot(Role::Modal, *layout, "modal-" + std::to_string(m_nextModal), error);
    if (!modal) {
        log::error(kComponent, "presentControllerWithName" + from + ": " + error);
        return Error(ErrorKind::NotFound, error);
    }
    ++m_nextModal;
    modal->context = context;
    awake(*modal, modal->context);
    Slot* covered = applicationSlot();
    if (covered && !m_glanceVisible)
        deactivate(*covered);
    m_modals.push_back(std::move(modal));
    scheduleFlush(m_changes.screenAdded(m_modals.back()->screen->id()));
    noteNavigation();
    if (!m_glanceVisible)
        activate(*m_modals.back());
    return EventResult();
}

void ExtensionHost::dismiss(Slot& modal) {
    auto position = std::find_if(m_modals.begin(), m_modals.end(),
                                 [&](const std::unique_ptr<Slot>& slot) { return slot.get() == &modal; });
    if (position == m_modals.end())
        return;
    std::size_t keep = static_cast<std::size_t>(position - m_modals.begin());
    while (m_modals.size() > keep) {
        deactivate(*m_modals.back());
        std::unique_ptr<Slot> top = std::move(m_modals.back());
        m_modals.pop_back();
        noteNavigation();
        if (Slot* uncovered = visibleSlot(); uncovered && m_modals.size() == keep)
            activate(*uncovered);
        dropSlot(std::move(top));
    }
}

void ExtensionHost::showPage(std::size_t index) {
    if (index >= m_pages.size() || index == m_currentPage)
        return;
    Slot* left = m_pages[m_currentPage].get();
    bool pagesVisible = visibleSlot() == left;
    if (pagesVisible)
        deactivate(*left);
    m_currentPage = index;
    noteNavigation();
    if (pagesVisible)
        activate(*m_pages[index]);
}

void ExtensionHost::presentController(InterfaceController& presenter, std::string_view name, Context context) {
    request({NavigationRequest::Kind::Present, presenter.weak_from_this(), &presenter, std::string(name),
             std::move(context)});
}

void ExtensionHost::dismissController(InterfaceController& controller) {
    request({NavigationRequest::Kind::Dismiss, controller.weak_from_this(), &controller, {}, {}});
}

void ExtensionHost::becomeCurrentPage(InterfaceController& controller) {
    request({NavigationRequest::Kind::BecomeCurrentPage, controller.weak_from_this(), &controller, {}, {}});
}

void ExtensionHost::request(NavigationRequest request) {
    m_navigation.push_back(std::move(request));
    if (m_dispatchDepth > 0 || m_drainPosted)
        return;
    // Asked from outside our callbacks (a timer, a notification): the caller may still be
    // running code of the controller we would release, so wait for the next turn.
    m_drainPosted = true;
    m_loop.post([alive = std::weak_ptr<ExtensionHost*>(m_alive)] {
        if (auto host = alive.lock()) {
            (*host)->m_drainPosted = false;
            (void)(*host)->dispatch([] { return EventResult(); });
        }
    });
}

void ExtensionHost::drainNavigation() {
    // Controllers that present from willActivate() could keep us here for ever.
    constexpr int kMaxRequestsPerDrain = 1000;
    int handled = 0;
    while (!m_navigation.empty()) {
        if (++handled > kMaxRequestsPerDrain) {
            log::error(kComponent, "more than " + std::to_string(kMaxRequestsPerDrain) +
                                       " navigation requests in one turn; the rest are dropped");
            m_navigation.clear();
            break;
        }
        NavigationRequest next = std::move(m_navigation.front());
        m_navigation.pop_front();
        ++m_dispatchDepth;
        Slot* from = next.from.expired() ? nullptr : slotOf(next.fromAddress);
        switch (next.kind) {
        case NavigationRequest::Kind::Present:
            if (from)
                (void)present(from, next.name, std::move(next.context));
            else
                log::debug(kComponent, "presentControllerWithName(" + next.name + ") from a controller off screen");
            break;
        case NavigationRequest::Kind::Dismiss:
            if (from && from->role == Role::Modal)
                dismiss(*from);
            else
                log::debug(kComponent, "dismissController from a controller that is no modal screen");
            break;
        case NavigationRequest::Kind::BecomeCurrentPage:
            if (from && from->role == Role::Page)
                showPage(static_cast<std::size_t>(
                    std::find_if(m_pages.begin(), m_pages.end(), [&](const auto& page) { return page.get() == from; }) -
                    m_pages.begin()));
            else
                log::debug(kComponent, "becomeCurrentPage from a controller that is no page");
            break;
        }
        --m_dispatchDepth;
    }
}

EventResult ExtensionHost::dispatch(const std::function<EventResult()>& work) {
    if (m_dispatchDepth == 0)
        m_callbackError.reset();
    ++m_dispatchDepth;
    EventResult result = EventResult();
    try {
        result = work();
    } catch (const std::exception& exception) {
        log::error(kComponent, std::string("input event failed: ") + exception.what());
        result = Error(ErrorKind::SystemFailure, exception.what());
    }
    --m_dispatchDepth;
    if (m_dispatchDepth > 0)
        return result;
    drainNavigation();
    if (result && m_callbackError)
        result = Error(ErrorKind::SystemFailure, *m_callbackError);
    m_callbackError.reset();
    return result;
}

void ExtensionHost::callController(const std::shared_ptr<InterfaceController>& controller, std::string_view what,
                                   const std::function<void(InterfaceController&)>& call) {
    // Held for the call: the controller may ask to be released meanwhile.
    std::shared_ptr<InterfaceController> keep = controller;
    ++m_dispatchDepth;
    try {
        call(*keep);
    } catch (const std::exception& exception) {
        std::string screen = keep->screen() ? keep->screen()->layout().identifier : std::string("off screen");
        std::string message = std::string(what) + " of '" + screen + "' threw: " + exception.what();
        log::error(kComponent, message);
        if (!m_callbackError)
            m_callbackError = message;
    }
    --m_dispatchDepth;
}

void ExtensionHost::noteNavigation() {
    scheduleFlush(m_changes.navigationChanged());
}

// Change records.

void ExtensionHost::objectDidChange(Screen& screen, InterfaceObject& object) {
    scheduleFlush(m_changes.objectChanged(screen.id(), object));
}

void ExtensionHost::scheduleFlush(bool firstOfBatch) {
    if (!firstOfBatch || m_flushPosted)
        return;
    m_flushPosted = true;
    m_loop.post([alive = std::weak_ptr<ExtensionHost*>(m_alive)] {
        if (auto host = alive.lock())
            (*host)->flushChanges();
    });
}

std::uint64_t ExtensionHost::subscribe(std::function<void(const nlohmann::json&)> listener) {
    return m_changes.subscribe(std::move(listener));
}

void ExtensionHost::unsubscribe(std::uint64_t subscription) {
    m_changes.unsubscribe(subscription);
}

void ExtensionHost::flushChanges() {
    m_flushPosted = false;
    ChangeStream::Pending pending = m_changes.take();
    if (pending.empty() || !m_changes.hasListeners())
        return;
    nlohmann::json changes = m_writer.changeRecords(pending, navigationView());
    if (changes.empty())
        return;
    ++m_revision;
    m_changes.deliver({{"revision", m_revision}, {"changes", std::move(changes)}});
}

// Snapshots.

SnapshotWriter::ScreenView ExtensionHost::viewOf(const Slot& slot) const {
    return {slot.screen.get(), slot.layout, roleName(static_cast<int>(slot.role)), &slot.context, slot.active};
}

SnapshotWriter::Navigation ExtensionHost::navigationView() const {
    SnapshotWriter::Navigation navigation;
    navigation.started = m_started;
    navigation.currentPage = m_currentPage;
    Slot* visible = visibleSlot();
    navigation.visible = visible ? visible->screen.get() : nullptr;
    for (const auto& page : m_pages)
        navigation.pages.push_back(viewOf(*page));
    for (const auto& modal : m_modals)
        navigation.modals.push_back(viewOf(*modal));
    navigation.glanceVisible = m_glanceVisible;
    if (m_glance)
        navigation.glance = viewOf(*m_glance);
    return navigation;
}

nlohmann::json ExtensionHost::snapshot() const {
    nlohmann::json snapshot = m_writer.snapshot(m_revision, navigationView());
    snapshot["locale"] = localeRecord();
    return snapshot;
}

nlohmann::json ExtensionHost::localeRecord() const {
    std::string identifier = m_options.locale.empty() ? std::string(kDefaultLocale) : m_options.locale;
    std::replace(identifier.begin(), identifier.end(), '_', '-');
    nlohmann::json texts = nlohmann::json::object();
    for (std::string_view text : kPlatformTexts)
        texts[std::string(text)] =
            m_options.localization ? m_options.localization->localizedString(text) : std::string(text);
    return {{"language", m_options.localization ? m_options.localization->language()
                                                : std::string(text::Localization::kDevelopmentLanguage)},
            {"identifier", std::move(identifier)},
            {"texts", std::move(texts)}};
}

void ExtensionHost::postSnapshot(std::function<void(const nlohmann::json&)> completion) {
    m_loop.post([alive = std::weak_ptr<ExtensionHost*>(m_alive), completion = std::move(completion)] {
        if (auto host = alive.lock(); host && completion)
            completion((*host)->snapshot());
    });
}

std::shared_ptr<const ImageData> ExtensionHost::imageWithId(std::string_view id) const {
    return m_images.find(id);
}

// Introspection.

std::shared_ptr<InterfaceController> ExtensionHost::pageController(std::size_t index) const {
    return index < m_pages.size() ? m_pages[index]->controller : nullptr;
}

std::vector<std::shared_ptr<InterfaceController>> ExtensionHost::modalControllers() const {
    std::vector<std::shared_ptr<InterfaceController>> controllers;
    for (const auto& modal : m_modals)
        controllers.push_back(modal->controller);
    return controllers;
}

std::shared_ptr<InterfaceController> ExtensionHost::glanceController() const {
    return m_glance ? m_glance->controller : nullptr;
}

std::shared_ptr<InterfaceController> ExtensionHost::visibleController() const {
    Slot* visible = visibleSlot();
    return visible ? visible->controller : nullptr;
}

std::shared_ptr<InterfaceObject> ExtensionHost::object(std::string_view id) const {
    for (Slot* slot : liveSlots()) {
        if (auto location = slot->screen->locate(id))
            return location->object;
    }
    return nullptr;
}

std::shared_ptr<InterfaceObject> ExtensionHost::objectForOutlet(const InterfaceController& controller,
                                                                std::string_view outlet) const {
    Slot* slot = slotOf(&controller);
    return slot ? slot->screen->objectForOutlet(outlet) : nullptr;
}

} // namespace vexo::watchkit
