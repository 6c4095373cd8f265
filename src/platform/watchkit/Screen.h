#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/watchkit/ClassDescription.h"
#include "platform/watchkit/FrameMap.h"
#include "platform/watchkit/InterfaceLayout.h"

namespace vexo::text {
class Localization;
}

// The interface objects of one controller on screen, made from its layout, with the
// services they need (change reporting, the image store, the clock, texts, row classes).
//
// The host makes a Screen for each page, each modal presentation and the glance, and owns
// it; the Screen owns the objects. When it goes, its objects go with it (outlets to them
// become empty) and any object still held for the moment is detached. Main loop's thread
// only.
namespace vexo::watchkit {

class ChangeSink;
class ControllerRegistry;
class Group;
class ImageStore;
class InterfaceController;
class InterfaceObject;
class Menu;
class RowController;
class Table;
struct RowClass;

// What a Screen needs from its host. Pointers are not owned and must outlive the screen.
struct ScreenServices {
    ChangeSink* sink = nullptr;
    ImageStore* images = nullptr;
    const ControllerRegistry* registry = nullptr;
    // The wall clock, for timers; the system clock when empty.
    std::function<std::chrono::system_clock::time_point()> clock;
    // Localises the layout's texts when set; they are shown as written otherwise.
    const text::Localization* localization = nullptr;
};

// One row of a table: its type, its group (which holds the row's objects), and its row
// controller with outlets connected.
struct TableRow {
    // The row type asked for; `type` is nullptr when the table's layout has no such type.
    std::string typeName;
    const RowTypeLayout* type = nullptr;
    std::shared_ptr<Group> group;
    std::shared_ptr<RowController> controller;
    // The registered row class, or nullptr for a plain row controller.
    const RowClass* rowClass = nullptr;
};

// Where an object found by identifier sits.
struct ObjectLocation {
    std::shared_ptr<InterfaceObject> object;
    // The object or one of the objects holding it is hidden.
    bool hidden = false;
    // The table and row holding the object, when it is inside a row.
    Table* table = nullptr;
    std::size_t rowIndex = 0;
};

class Screen {
public:
    // Builds the objects of `layout`. `id` prefixes the identifiers of its objects.
    // REQUIRES: `layout` outlives the screen.
    Screen(std::string id, const ControllerLayout& layout, ScreenServices services);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    Screen(Screen&&) = delete;
    Screen& operator=(Screen&&) = delete;

    [[nodiscard]] const std::string& id() const { return m_id; }
    [[nodiscard]] const ControllerLayout& layout() const { return *m_layout; }

    // The top-level objects, in layout order.
    [[nodiscard]] const std::vector<std::shared_ptr<InterfaceObject>>& objects() const { return m_objects; }
    [[nodiscard]] Menu& menu() const { return *m_menu; }

    // The object whose outlet name is `outlet`, outside table rows; nullptr when none.
    [[nodiscard]] std::shared_ptr<InterfaceObject> objectForOutlet(std::string_view outlet) const;

    // The object with identifier `id`, table rows and the menu included, or nothing.
    [[nodiscard]] std::optional<ObjectLocation> locate(std::string_view id) const;

    // Connects every outlet of `description` to the object of that name on this screen;
    // an outlet without an object stays empty (and is logged).
    void connectOutlets(InterfaceController& controller,
                        const ClassDescription<InterfaceController>& description) const;

    // {"objects": [...], "menu": {...}}, each object with its frame from `frames`.
    [[nodiscard]] nlohmann::json toJson(const FrameMap& frames) const;

    // For the objects: report a change, store image data, read the clock, localise a text,
    // make a row of `rowType` for the table laid out by `table` (its controller made and
    // connected).
    void objectDidChange(InterfaceObject& object);
    [[nodiscard]] ImageStore* images() const { return m_services.images; }
    [[nodiscard]] std::chrono::system_clock::time_point now() const;
    [[nodiscard]] std::string localized(const std::string& text) const;
    [[nodiscard]] TableRow makeRow(const ObjectLayout& table, std::string_view rowType);

private:
    std::shared_ptr<InterfaceObject> makeObject(const ObjectLayout& layout);
    std::string nextObjectId();

    std::string m_id;
    const ControllerLayout* m_layout;
    ScreenServices m_services;
    std::uint64_t m_nextObject = 0;
    std::vector<std::shared_ptr<InterfaceObject>> m_objects;
    std::shared_ptr<Menu> m_menu;
};

} // namespace vexo::watchkit
