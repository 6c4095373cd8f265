#include "ui/InterfaceClasses.h"

#include "platform/watchkit/ControllerRegistry.h"
#include "ui/GlanceController.h"
#include "ui/NotificationController.h"
#include "ui/VXAWGlanceController.h"
#include "ui/VXAWGroupItemRowType.h"
#include "ui/VXAWLibraryInterfaceController.h"
#include "ui/VXAWMixerInterfaceController.h"
#include "ui/VXAWQueueInterfaceController.h"
#include "ui/VXAWSongItemRowType.h"
#include "ui/VXAWTransitionTypeRowType.h"
#include "ui/VXAWTransitionsInterfaceController.h"
#include "ui/VXAWTurntable1InterfaceController.h"
#include "ui/VXAWTurntable2InterfaceController.h"
#include "ui/VXAWiTunesPlaylistInterfaceController.h"

namespace vexo::ui {

void registerInterfaceClasses(watchkit::ControllerRegistry& registry) {
    // The deck pages publish each new instance as their class's shared controller.
    registry.registerClass<VXAWTurntable1InterfaceController>(
        "VXAWTurntable1InterfaceController",
        std::function<std::shared_ptr<VXAWTurntable1InterfaceController>()>(&VXAWTurntable1InterfaceController::make));
    registry.registerClass<VXAWTurntable2InterfaceController>(
        "VXAWTurntable2InterfaceController",
        std::function<std::shared_ptr<VXAWTurntable2InterfaceController>()>(&VXAWTurntable2InterfaceController::make));
    registry.registerClass<VXAWMixerInterfaceController>("VXAWMixerInterfaceController");
    registry.registerClass<VXAWTransitionsInterfaceController>("VXAWTransitionsInterfaceController");
    registry.registerClass<VXAWLibraryInterfaceController>("VXAWLibraryInterfaceController");
    registry.registerClass<VXAWiTunesPlaylistInterfaceController>("VXAWiTunesPlaylistInterfaceController");
    registry.registerClass<VXAWQueueInterfaceController>("VXAWQueueInterfaceController");
    registry.registerClass<VXAWGlanceController>("VXAWGlanceController");
    registry.registerClass<GlanceController>("GlanceController");
    registry.registerClass<NotificationController>("NotificationController");

    registry.registerRowClass<VXAWTransitionTypeRowType>("VXAWTransitionTypeRowType");
    registry.registerRowClass<VXAWGroupItemRowType>("VXAWGroupItemRowType");
    registry.registerRowClass<VXAWSongItemRowType>("VXAWSongItemRowType");
}

} // namespace vexo::ui
