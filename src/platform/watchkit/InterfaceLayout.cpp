#include "platform/watchkit/InterfaceLayout.h"

#include "platform/text/Localization.h"

namespace vexo::watchkit {

const ControllerLayout* InterfaceLayout::controller(std::string_view identifier) const {
    auto found = controllers.find(identifier);
    return found == controllers.end() ? nullptr : &found->second;
}

std::filesystem::path InterfaceLayout::defaultPath() {
    return text::Localization::defaultResourceDirectory() / "Interface.json";
}

} // namespace vexo::watchkit
