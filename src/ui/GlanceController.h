#pragma once

#include "platform/watchkit/InterfaceController.h"

// A glance controller that adds nothing to its base; the application's glance is
// VXAWGlanceController.
namespace vexo::ui {

class GlanceController : public watchkit::InterfaceController {
public:
    GlanceController() = default;
    void awakeWithContext(const watchkit::Context& context) override;
    void willActivate() override;
    void didDeactivate() override;
};

} // namespace vexo::ui
