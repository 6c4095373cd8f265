#pragma once

#include "platform/watchkit/Image.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/RowController.h"

// A row of the library screen's list ("groupItemRowType"): a playlist's name and icon.
namespace vexo::ui {

class VXAWGroupItemRowType final : public watchkit::RowController {
public:
    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        c.outlet("nameLabel", &VXAWGroupItemRowType::m_nameLabel);
        c.outlet("image", &VXAWGroupItemRowType::m_image);
    }

    [[nodiscard]] const watchkit::Outlet<watchkit::Label>& nameLabel() const { return m_nameLabel; }
    [[nodiscard]] const watchkit::Outlet<watchkit::Image>& image() const { return m_image; }

private:
    watchkit::Outlet<watchkit::Label> m_nameLabel;
    watchkit::Outlet<watchkit::Image> m_image;
};

} // namespace vexo::ui
