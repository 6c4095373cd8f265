#include "model/Environment.h"

#include "model/VXAWModel.h"
#include "platform/ipc/ParentApplication.h"
#include "platform/log/Log.h"
#include "platform/plist/Value.h"

namespace vexo::model {
namespace {

Environment& installed() {
    static Environment environment;
    return environment;
}

} // namespace

const Environment& environment() {
    return installed();
}

void installEnvironment(Environment environment) {
    VXAWModel::forgetSharedModel();
    installed() = std::move(environment);
}

void openParentApplication(const plist::Value& userInfo) {
    if (const auto& link = environment().parentApplication)
        link->openParentApplication(userInfo);
    else
        log::debug("model", "no phone link; action dropped");
}

} // namespace vexo::model
