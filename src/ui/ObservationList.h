#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/runtime/KeyValueObserver.h"
#include "platform/runtime/Observable.h"
#include "platform/runtime/ObservingOptions.h"

// The key-value observations one controller has registered, so that they are removed in the
// order they were added, and so that none outlives the controller: the host releases
// controllers without deactivating them when it ends, and a model would otherwise keep
// calling an observer that is gone. Main loop's thread only.
namespace vexo::ui {

class ObservationList {
public:
    // `observer` is the controller that owns this list. REQUIRES: the list is a member of it.
    explicit ObservationList(runtime::KeyValueObserver& observer)
        : m_observer(observer) {}
    // Removes what is still registered.
    ~ObservationList() { removeAll(); }
    ObservationList(const ObservationList&) = delete;
    ObservationList& operator=(const ObservationList&) = delete;

    // Registers the observer for `keyPath` of `object` (kept alive until removed); with
    // Initial the observer hears of it before this returns.
    void add(const std::shared_ptr<runtime::Observable>& object, std::string_view keyPath,
             runtime::ObservingOptions options);

    // Removes every registration, first added first.
    void removeAll();

    [[nodiscard]] bool empty() const { return m_entries.empty(); }

private:
    struct Entry {
        std::shared_ptr<runtime::Observable> object;
        std::string keyPath;
    };

    runtime::KeyValueObserver& m_observer;
    std::vector<Entry> m_entries;
};

} // namespace vexo::ui
