#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/ipc/ParentApplication.h"

namespace vexo::face {

class ProtocolLog;

// A phone link that writes every dictionary it hands on into a protocol log before passing
// it to the real link. A dictionary {"identifier": s, "contents": c} is recorded as s with
// contents c; an empty dictionary (the wake-up that follows a library action written as a
// message) is recorded as the message that `readWakeUp` reads, under `wakeUpIdentifier`, or
// without a reader as "wake-up" with no contents;
// anything else under the identifier "openParentApplication" as a whole. Main loop's thread
// only, like every ParentApplication.
class RecordingParentApplication final : public ipc::ParentApplication {
public:
    // The message that an empty dictionary stands for.
    using WakeUpReader = std::function<plist::Value()>;

    // REQUIRES: `log` outlives this object. `next` may be nullptr (then nothing is sent on).
    RecordingParentApplication(std::shared_ptr<ipc::ParentApplication> next, ProtocolLog& log,
                               std::string wakeUpIdentifier = {}, WakeUpReader readWakeUp = {});

    void openParentApplication(const plist::Value& userInfo) override;

private:
    std::shared_ptr<ipc::ParentApplication> m_next;
    ProtocolLog& m_log;
    std::string m_wakeUpIdentifier;
    WakeUpReader m_readWakeUp;
};

} // namespace vexo::face
