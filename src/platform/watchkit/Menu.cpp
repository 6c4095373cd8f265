#include "platform/watchkit/Menu.h"

#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

Menu::Menu(ObjectInit init)
    : InterfaceObject(kKind, std::move(init)) {}

Menu& Menu::nil() {
    static Menu standIn{ObjectInit{}};
    return standIn;
}

void Menu::clearAllMenuItems() {
    if (!acceptChange("clearAllMenuItems") || (m_items.empty() && !m_open))
        return;
    m_items.clear();
    m_reopenWhenRefilled = m_reopenWhenRefilled || m_open;
    m_open = false;
    didChange();
}

bool Menu::addMenuItemWithImageNamed(std::string imageName, std::string title, std::string action) {
    if (!acceptChange("addMenuItemWithImageNamed") || m_items.size() >= kMaxItems)
        return false;
    m_items.push_back({std::move(imageName), std::move(title), std::move(action)});
    if (m_reopenWhenRefilled) {
        m_reopenWhenRefilled = false;
        m_open = true;
    }
    didChange();
    return true;
}

void Menu::setOpen(bool open) {
    if (!acceptChange("setOpen"))
        return;
    m_reopenWhenRefilled = false;
    if (m_open == open)
        return;
    m_open = open;
    didChange();
}

void Menu::writeState(nlohmann::json& out, const FrameMap&) const {
    nlohmann::json items = nlohmann::json::array();
    for (const Item& item : m_items)
        items.push_back({{"image", {{"name", snapshot::text(item.imageName)}}},
                         {"title", snapshot::text(item.title)},
                         {"action", item.action}});
    out["items"] = std::move(items);
    out["open"] = m_open;
}

} // namespace vexo::watchkit
