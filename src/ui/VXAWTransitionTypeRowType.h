#pragma once

#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/RowController.h"

// A row of the transitions screen's list ("transitionTypeRowType"): one transition's name.
namespace vexo::ui {

class VXAWTransitionTypeRowType final : public watchkit::RowController {
public:
    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        c.outlet("nameLabel", &VXAWTransitionTypeRowType::m_nameLabel);
    }

    // Writes "moo" to the log and nothing else. Nothing calls it; it has always been part of
    // the class and is kept as it is.
    void moo();

    [[nodiscard]] const watchkit::Outlet<watchkit::Label>& nameLabel() const { return m_nameLabel; }

private:
    watchkit::Outlet<watchkit::Label> m_nameLabel;
};

} // namespace vexo::ui
