#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/watchkit/InterfaceObject.h"

// A screen's force-touch menu: up to four items, each an image, a title and the name of
// one of the controller's actions. Controllers fill it through InterfaceController; the
// host opens and closes it. See InterfaceObject for ownership and threads.
namespace vexo::watchkit {

class Menu final : public InterfaceObject {
public:
    static constexpr ObjectKind kKind = ObjectKind::Menu;
    static constexpr std::size_t kMaxItems = 4;

    struct Item {
        std::string imageName;
        std::string title;
        std::string action;
        friend bool operator==(const Item&, const Item&) = default;
    };

    explicit Menu(ObjectInit init);
    [[nodiscard]] static Menu& nil();

    // Removes every item; an open menu closes. When the screen adds an item again before the
    // user opens or closes the menu, it opens again: screens rebuild their menu whenever their
    // model changes (the mixer on every status), and a rebuild must not take the menu away
    // from under the user's finger.
    void clearAllMenuItems();
    // Adds an item at the end; false (nothing added) when the menu is full.
    bool addMenuItemWithImageNamed(std::string imageName, std::string title, std::string action);

    [[nodiscard]] const std::vector<Item>& items() const { return m_items; }
    [[nodiscard]] bool isOpen() const { return m_open; }

    // Host side: the user pressed the screen (open) or left the menu (closed).
    void setOpen(bool open);

private:
    void writeState(nlohmann::json& out, const FrameMap& frames) const override;

    std::vector<Item> m_items;
    bool m_open = false;
    // The menu was open when it was last emptied, and the user has not acted since.
    bool m_reopenWhenRefilled = false;
};

} // namespace vexo::watchkit
