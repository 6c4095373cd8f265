#include "platform/ipc/ParentApplication.h"

namespace vexo::ipc {

ParentApplication::~ParentApplication() = default;

} // namespace vexo::ipc
