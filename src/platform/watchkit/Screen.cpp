#include "platform/watchkit/Screen.h"

#include "platform/log/Log.h"
#include "platform/text/Localization.h"
#include "platform/watchkit/Button.h"
#include "platform/watchkit/ChangeSink.h"
#include "platform/watchkit/ControllerRegistry.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/Image.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Menu.h"
#include "platform/watchkit/Slider.h"
#include "platform/watchkit/Switch.h"
#include "platform/watchkit/Table.h"
#include "platform/watchkit/Timer.h"

namespace vexo::watchkit {

namespace {

constexpr std::string_view kComponent = "watchkit";

const ObjectLayout& menuLayout() {
    static const ObjectLayout layout = [] {
        ObjectLayout menu;
        menu.kind = ObjectKind::Menu;
        menu.path = "menu";
        return menu;
    }();
    return layout;
}

// The group of a row whose type the table does not know: empty, no height of its own.
const ObjectLayout& unknownRowLayout() {
    static const ObjectLayout layout = [] {
        ObjectLayout group;
        group.kind = ObjectKind::Group;
        group.height = {Dimension::Mode::Fit, 0};
        return group;
    }();
    return layout;
}

std::shared_ptr<InterfaceObject> findOutlet(const std::vector<std::shared_ptr<InterfaceObject>>& objects,
                                            std::string_view outlet) {
    for (const auto& object : objects) {
        if (object->outletName() == outlet)
            return object;
        if (auto found = findOutlet(object->children(), outlet))
            return found;
    }
    return nullptr;
}

std::optional<ObjectLocation> locateIn(const std::vector<std::shared_ptr<InterfaceObject>>& objects,
                                       std::string_view id, const ObjectLocation& context) {
    for (const auto& object : objects) {
        ObjectLocation here = context;
        here.hidden = context.hidden || object->isHidden();
        if (object->identifier() == id) {
            here.object = object;
            return here;
        }
        if (auto found = locateIn(object->children(), id, here))
            return found;
        if (object->kind() != ObjectKind::Table)
            continue;
        auto& table = static_cast<Table&>(*object);
        for (std::size_t i = 0; i < table.rows().size(); ++i) {
            ObjectLocation inRow = here;
            inRow.table = &table;
            inRow.rowIndex = i;
            if (auto found = locateIn({table.rows()[i].group}, id, inRow))
                return found;
        }
    }
    return std::nullopt;
}

} // namespace

Screen::Screen(std::string id, const ControllerLayout& layout, ScreenServices services)
    : m_id(std::move(id)),
      m_layout(&layout),
      m_services(std::move(services)) {
    for (const ObjectLayout& child : layout.root.children)
        m_objects.push_back(makeObject(child));
    m_menu = std::make_shared<Menu>(ObjectInit{this, &menuLayout(), m_id + ".menu"});
}

Screen::~Screen() {
    // Whatever outlives us for a moment must not report to a screen that is gone.
    for (const auto& object : m_objects)
        object->detach();
    m_menu->detach();
}

std::shared_ptr<InterfaceObject> Screen::objectForOutlet(std::string_view outlet) const {
    return findOutlet(m_objects, outlet);
}

std::optional<ObjectLocation> Screen::locate(std::string_view id) const {
    if (id == m_menu->identifier())
        return ObjectLocation{m_menu, false, nullptr, 0};
    return locateIn(m_objects, id, ObjectLocation{});
}

void Screen::connectOutlets(InterfaceController& controller,
                            const ClassDescription<InterfaceController>& description) const {
    for (const auto& outlet : description.outlets()) {
        std::shared_ptr<InterfaceObject> object = objectForOutlet(outlet.name);
        if (!object || object->kind() != outlet.kind) {
            log::error(kComponent, "screen " + m_id + " (" + m_layout->identifier + "): outlet '" + outlet.name +
                                       "' has no " + std::string(kindName(outlet.kind)) +
                                       " in the layout; it stays empty");
            continue;
        }
        outlet.connect(controller, object);
    }
}

nlohmann::json Screen::toJson(const FrameMap& frames) const {
    nlohmann::json objects = nlohmann::json::array();
    for (const auto& object : m_objects)
        objects.push_back(object->toJson(frames, true));
    return {{"objects", std::move(objects)}, {"menu", m_menu->toJson(frames, false)}};
}

void Screen::objectDidChange(InterfaceObject& object) {
    if (m_services.sink)
        m_services.sink->objectDidChange(*this, object);
}

std::chrono::system_clock::time_point Screen::now() const {
    return m_services.clock ? m_services.clock() : std::chrono::system_clock::now();
}

std::string Screen::localized(const std::string& text) const {
    return m_services.localization ? m_services.localization->localizedString(text) : text;
}

TableRow Screen::makeRow(const ObjectLayout& table, std::string_view rowType) {
    TableRow row;
    row.typeName = std::string(rowType);
    row.type = table.rowType(rowType);
    if (!row.type) {
        log::error(kComponent, "screen " + m_id + " (" + m_layout->identifier + "): table '" +
                                   table.outlet.value_or(table.path) + "' has no row type '" + row.typeName + "'");
        row.group = std::make_shared<Group>(ObjectInit{this, &unknownRowLayout(), nextObjectId()});
        row.controller = std::make_shared<RowController>();
        return row;
    }
    row.group = std::static_pointer_cast<Group>(makeObject(row.type->group));
    if (row.type->className && m_services.registry)
        row.rowClass = m_services.registry->rowClass(*row.type->className);
    if (row.rowClass && row.rowClass->factory)
        row.controller = row.rowClass->factory();
    if (!row.controller) {
        if (row.type->className) {
            log::error(kComponent, "screen " + m_id + ": row class '" + *row.type->className +
                                       "' could not be made; the row gets a plain row controller");
        }
        row.controller = std::make_shared<RowController>();
        row.rowClass = nullptr;
        return row;
    }
    for (const auto& outlet : row.rowClass->description.outlets()) {
        std::shared_ptr<InterfaceObject> object = findOutlet({row.group}, outlet.name);
        if (object && object->kind() == outlet.kind)
            outlet.connect(*row.controller, object);
        else
            log::error(kComponent, "row type '" + row.typeName + "': outlet '" + outlet.name + "' has no object");
    }
    return row;
}

std::shared_ptr<InterfaceObject> Screen::makeObject(const ObjectLayout& layout) {
    ObjectInit init{this, &layout, nextObjectId()};
    std::shared_ptr<InterfaceObject> object;
    switch (layout.kind) {
    case ObjectKind::Group:
        object = std::make_shared<Group>(std::move(init));
        break;
    case ObjectKind::Button:
        object = std::make_shared<Button>(std::move(init));
        break;
    case ObjectKind::Label:
        object = std::make_shared<Label>(std::move(init));
        break;
    case ObjectKind::Image:
        object = std::make_shared<Image>(std::move(init));
        break;
    case ObjectKind::Slider:
        object = std::make_shared<Slider>(std::move(init));
        break;
    case ObjectKind::Switch:
        object = std::make_shared<Switch>(std::move(init));
        break;
    case ObjectKind::Table:
        object = std::make_shared<Table>(std::move(init));
        break;
    case ObjectKind::Timer:
        object = std::make_shared<Timer>(std::move(init));
        break;
    case ObjectKind::Menu:
        object = std::make_shared<Menu>(std::move(init));
        break;
    }
    for (const ObjectLayout& child : layout.children)
        object->appendChild(makeObject(child));
    return object;
}

std::string Screen::nextObjectId() {
    return m_id + "." + std::to_string(m_nextObject++);
}

} // namespace vexo::watchkit
