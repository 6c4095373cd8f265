#include "platform/watchkit/ControllerRegistry.h"

#include "platform/log/Log.h"

namespace vexo::watchkit {

ControllerRegistry& ControllerRegistry::shared() {
    static ControllerRegistry registry;
    return registry;
}

const ControllerClass* ControllerRegistry::controllerClass(std::string_view className) const {
    auto found = m_controllers.find(className);
    return found == m_controllers.end() ? nullptr : found->second.get();
}

const RowClass* ControllerRegistry::rowClass(std::string_view className) const {
    auto found = m_rows.find(className);
    return found == m_rows.end() ? nullptr : found->second.get();
}

std::vector<std::string> ControllerRegistry::controllerClassNames() const {
    std::vector<std::string> names;
    for (const auto& entry : m_controllers)
        names.push_back(entry.first);
    return names;
}

std::vector<std::string> ControllerRegistry::rowClassNames() const {
    std::vector<std::string> names;
    for (const auto& entry : m_rows)
        names.push_back(entry.first);
    return names;
}

void ControllerRegistry::logRefused(const std::string& name) {
    log::error("watchkit", name.empty() ? std::string("a class cannot be registered without a name")
                                        : "class '" + name + "' is registered already; the first registration stays");
}

} // namespace vexo::watchkit
