#include "face/RecordingParentApplication.h"

#include "face/ProtocolLog.h"

namespace vexo::face {

RecordingParentApplication::RecordingParentApplication(std::shared_ptr<ipc::ParentApplication> next, ProtocolLog& log,
                                                       std::string wakeUpIdentifier, WakeUpReader readWakeUp)
    : m_next(std::move(next)),
      m_log(log),
      m_wakeUpIdentifier(std::move(wakeUpIdentifier)),
      m_readWakeUp(std::move(readWakeUp)) {}

void RecordingParentApplication::openParentApplication(const plist::Value& userInfo) {
    const plist::Dictionary* dictionary = userInfo.asDictionary();
    if (dictionary && dictionary->empty()) {
        if (m_readWakeUp)
            m_log.record(m_wakeUpIdentifier, Direction::ToPhone, m_readWakeUp());
        else
            m_log.record("wake-up", Direction::ToPhone, plist::Value());
    } else if (const std::string* identifier = userInfo["identifier"].asString(); dictionary && identifier) {
        m_log.record(*identifier, Direction::ToPhone, userInfo["contents"]);
    } else {
        m_log.record("openParentApplication", Direction::ToPhone, userInfo);
    }
    if (m_next)
        m_next->openParentApplication(userInfo);
}

} // namespace vexo::face
