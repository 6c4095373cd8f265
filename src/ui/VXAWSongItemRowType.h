#pragma once

#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/RowController.h"

// A row of the playlist screen's list ("songItemRowType"): a song's title and artist.
namespace vexo::ui {

class VXAWSongItemRowType final : public watchkit::RowController {
public:
    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        c.outlet("nameLabel", &VXAWSongItemRowType::m_nameLabel);
        c.outlet("artistLabel", &VXAWSongItemRowType::m_artistLabel);
    }

    [[nodiscard]] const watchkit::Outlet<watchkit::Label>& nameLabel() const { return m_nameLabel; }
    [[nodiscard]] const watchkit::Outlet<watchkit::Label>& artistLabel() const { return m_artistLabel; }

private:
    watchkit::Outlet<watchkit::Label> m_nameLabel;
    watchkit::Outlet<watchkit::Label> m_artistLabel;
};

} // namespace vexo::ui
