#include "ui/VXAWTransitionTypeRowType.h"

#include "platform/log/Log.h"

namespace vexo::ui {

void VXAWTransitionTypeRowType::moo() {
    log::info("ui", "moo");
}

} // namespace vexo::ui
