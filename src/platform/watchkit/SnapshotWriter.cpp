#include "platform/watchkit/SnapshotWriter.h"

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/watchkit/Context.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceLayout.h"
#include "platform/watchkit/InterfaceObject.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/StackLayout.h"
#include "platform/watchkit/Table.h"

namespace vexo::watchkit {

namespace {

nlohmann::json screenId(const Screen* screen) {
    return screen ? nlohmann::json(screen->id()) : nlohmann::json(nullptr);
}

// Calls `visit` with every object of `screen`: its objects, their children and the objects
// in the rows of its tables.
void forEachObject(const Screen& screen, const std::function<void(const InterfaceObject&)>& visit) {
    std::function<void(const InterfaceObject&)> walk = [&](const InterfaceObject& object) {
        visit(object);
        for (const auto& child : object.children())
            walk(*child);
        if (object.kind() == ObjectKind::Table) {
            for (const TableRow& row : static_cast<const Table&>(object).rows())
                walk(*row.group);
        }
    };
    for (const auto& object : screen.objects())
        walk(*object);
}

} // namespace

std::vector<SnapshotWriter::ScreenView> SnapshotWriter::liveScreens(const Navigation& navigation) {
    std::vector<ScreenView> screens = navigation.pages;
    screens.insert(screens.end(), navigation.modals.begin(), navigation.modals.end());
    if (navigation.glance.screen)
        screens.push_back(navigation.glance);
    return screens;
}

nlohmann::json SnapshotWriter::screen(const ScreenView& view, bool markReported) const {
    StackLayout::Result layout = StackLayout::layoutScreen(*view.screen, m_width, m_height);
    if (markReported) {
        for (const auto& [object, frame] : layout.frames)
            object->setReportedFrame(frame);
    }
    nlohmann::json out = view.screen->toJson(layout.frames);
    out["id"] = view.screen->id();
    out["controller"] = view.layout->identifier;
    out["class"] = view.layout->className;
    out["role"] = view.role;
    // The title of the close control is a layout text like any other.
    out["title"] =
        view.layout->title ? nlohmann::json(view.screen->localized(*view.layout->title)) : nlohmann::json(nullptr);
    out["accessibilityLabel"] = view.layout->accessibilityLabel
                                    ? nlohmann::json(view.screen->localized(*view.layout->accessibilityLabel))
                                    : nlohmann::json(nullptr);
    out["active"] = view.active;
    out["context"] = view.context->describe();
    out["contentHeight"] = layout.contentHeight;
    return out;
}

nlohmann::json SnapshotWriter::navigation(const Navigation& navigation) const {
    nlohmann::json pages = nlohmann::json::array();
    for (const auto& page : navigation.pages)
        pages.push_back(page.screen->id());
    nlohmann::json modals = nlohmann::json::array();
    for (const auto& modal : navigation.modals)
        modals.push_back(modal.screen->id());
    nlohmann::json active = nullptr;
    for (const ScreenView& view : liveScreens(navigation)) {
        if (view.active)
            active = view.screen->id();
    }
    return {{"started", navigation.started},
            {"currentPage", navigation.currentPage},
            {"visibleScreen", screenId(navigation.visible)},
            {"pages", std::move(pages)},
            {"modals", std::move(modals)},
            {"glance", {{"visible", navigation.glanceVisible}, {"screen", screenId(navigation.glance.screen)}}},
            {"active", std::move(active)}};
}

nlohmann::json SnapshotWriter::snapshot(std::uint64_t revision, const Navigation& navigation) const {
    nlohmann::json pages = nlohmann::json::array();
    for (const auto& page : navigation.pages)
        pages.push_back(screen(page, false));
    nlohmann::json modals = nlohmann::json::array();
    for (const auto& modal : navigation.modals)
        modals.push_back(screen(modal, false));
    return {{"revision", revision},
            {"screen", {{"width", m_width}, {"height", m_height}}},
            {"started", navigation.started},
            {"currentPage", navigation.currentPage},
            {"visibleScreen", screenId(navigation.visible)},
            {"pages", std::move(pages)},
            {"modals", std::move(modals)},
            {"glance",
             {{"visible", navigation.glanceVisible},
              {"screen", navigation.glance.screen ? screen(navigation.glance, false) : nlohmann::json(nullptr)}}}};
}

nlohmann::json SnapshotWriter::changeRecords(const ChangeStream::Pending& pending, const Navigation& navigation) const {
    nlohmann::json changes = nlohmann::json::array();
    if (pending.navigation) {
        nlohmann::json record = this->navigation(navigation);
        record["change"] = "navigation";
        changes.push_back(std::move(record));
    }
    for (const std::string& id : pending.removedScreens)
        changes.push_back({{"change", "screenRemoved"}, {"screen", id}});

    const std::vector<ScreenView> live = liveScreens(navigation);
    std::set<std::string> added;
    for (const std::string& id : pending.addedScreens) {
        for (const ScreenView& view : live) {
            if (view.screen->id() != id)
                continue;
            changes.push_back({{"change", "screenAdded"}, {"screen", screen(view, true)}});
            added.insert(id);
        }
    }

    // Objects of screens that were there before: what changed, and what moved because of it.
    std::map<std::string, std::vector<std::shared_ptr<InterfaceObject>>> changedByScreen;
    for (const auto& [screenId, weak] : pending.objects) {
        if (auto object = weak.lock(); object && !added.contains(screenId))
            changedByScreen[screenId].push_back(std::move(object));
    }
    for (auto& entry : changedByScreen) {
        // Named, not bound: lambdas below capture them, which clang 14 refuses for bindings.
        const std::string& screenId = entry.first;
        std::vector<std::shared_ptr<InterfaceObject>>& objects = entry.second;
        const Screen* shown = nullptr;
        for (const ScreenView& view : live) {
            if (view.screen->id() == screenId)
                shown = view.screen;
        }
        if (!shown)
            continue;
        StackLayout::Result layout = StackLayout::layoutScreen(*shown, m_width, m_height);
        // Objects whose whole state goes out in some record: the changed ones, and the
        // objects in the rows of a changed table, which its record carries.
        std::set<const InterfaceObject*> covered;
        auto cover = [&](const InterfaceObject& object) {
            covered.insert(&object);
            if (object.kind() != ObjectKind::Table)
                return;
            std::function<void(const InterfaceObject&)> coverTree = [&](const InterfaceObject& inner) {
                covered.insert(&inner);
                for (const auto& child : inner.children())
                    coverTree(*child);
            };
            for (const TableRow& row : static_cast<const Table&>(object).rows())
                coverTree(*row.group);
        };
        for (const auto& object : objects)
            cover(*object);
        for (const auto& [object, frame] : layout.frames) {
            if (!covered.contains(object) && object->reportedFrame() != frame) {
                objects.push_back(std::const_pointer_cast<InterfaceObject>(object->shared_from_this()));
                cover(*object);
            }
        }
        // An object inside a container that was just hidden is laid out no more: pages keep
        // the frame they were told until they are told it is gone.
        forEachObject(*shown, [&](const InterfaceObject& object) {
            if (!covered.contains(&object) && object.reportedFrame() && !layout.frames.contains(&object)) {
                objects.push_back(std::const_pointer_cast<InterfaceObject>(object.shared_from_this()));
                cover(object);
            }
        });
        for (const InterfaceObject* object : covered) {
            if (auto frame = layout.frames.find(object); frame != layout.frames.end())
                object->setReportedFrame(frame->second);
            else
                object->clearReportedFrame();
        }
        for (const auto& object : objects)
            changes.push_back(
                {{"change", "object"}, {"screen", screenId}, {"object", object->toJson(layout.frames, false)}});
    }
    return changes;
}

} // namespace vexo::watchkit
