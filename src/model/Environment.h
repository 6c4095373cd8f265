#pragma once

#include <memory>
#include <string>

#include "model/VXAWProtocol.h"

namespace vexo::runtime {
class RunLoop;
class UserDefaults;
} // namespace vexo::runtime
namespace vexo::ipc {
class ParentApplication;
}
namespace vexo::media {
class MediaLibrary;
}

// What the watch-side models take from the process they run in. A program sets it once at
// start; each test installs its own, and with it a fresh shared model (VXAWModel).
//
// The shared container is found by the application group (see ipc::Container; tests point
// its location at a temporary directory).
namespace vexo::model {

struct Environment {
    // The main loop: results of background work are handed back to it. Not owned.
    runtime::RunLoop* mainLoop = nullptr;
    // The one-way road to the phone application; actions are dropped without it.
    std::shared_ptr<ipc::ParentApplication> parentApplication;
    // The local media library; queries find nothing without it.
    std::shared_ptr<media::MediaLibrary> mediaLibrary;
    // The extension's standard user defaults.
    std::shared_ptr<runtime::UserDefaults> userDefaults;
    // The application group shared with the phone: every transport of the models and the
    // glance, and the library's change notifications, use its container.
    std::string applicationGroupIdentifier{VXAWWormholeApplicationGroupIdentifier};
};

// The process's environment. REQUIRES: installEnvironment() was called. Main thread.
const Environment& environment();

// Replaces the process's environment and forgets the shared model, so that the next
// VXAWModel::sharedModel() builds a new one in it. Main thread, while no model object of the
// previous environment is in use.
void installEnvironment(Environment environment);

} // namespace vexo::model

namespace vexo::plist {
class Value;
}

namespace vexo::model {

// openParentApplication:reply: with no reply: hands `userInfo` to the environment's phone
// link; without one it is dropped with a debug log line.
void openParentApplication(const plist::Value& userInfo);

} // namespace vexo::model
