#include "ui/ObservationList.h"

namespace vexo::ui {

void ObservationList::add(const std::shared_ptr<runtime::Observable>& object, std::string_view keyPath,
                          runtime::ObservingOptions options) {
    if (!object)
        return;
    object->addObserver(m_observer, keyPath, options);
    m_entries.push_back({object, std::string(keyPath)});
}

void ObservationList::removeAll() {
    std::vector<Entry> entries = std::move(m_entries);
    m_entries.clear();
    for (const Entry& entry : entries)
        entry.object->removeObserver(m_observer, entry.keyPath);
}

} // namespace vexo::ui
