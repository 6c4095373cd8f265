#pragma once

#include <vector>

#include "platform/ipc/ParentApplication.h"
#include "platform/plist/Value.h"

namespace vexo::testing {

// A phone link that delivers nothing and remembers every dictionary handed to it, in order,
// so that model and screen tests can check what would have gone to the phone application.
class RecordingParentApplication final : public ipc::ParentApplication {
public:
    void openParentApplication(const plist::Value& userInfo) override { m_dictionaries.push_back(userInfo); }

    // Every dictionary handed over since construction or the last clear(), oldest first.
    [[nodiscard]] const std::vector<plist::Value>& dictionaries() const { return m_dictionaries; }

    void clear() { m_dictionaries.clear(); }

private:
    std::vector<plist::Value> m_dictionaries;
};

} // namespace vexo::testing
