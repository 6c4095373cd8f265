#include "platform/ipc/ParentApplicationReceiver.h"

#include <utility>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/log/Log.h"

namespace vexo::ipc {

ParentApplicationReceiver::ParentApplicationReceiver(std::filesystem::path container, runtime::RunLoop& loop,
                                                     Callback onDictionary)
    // The callback is captured by value, never `this`: the phone application may destroy its
    // receiver inside it.
    : m_receiver(kParentApplicationEndpoint, std::move(container), loop,
                 [onDictionary = std::move(onDictionary)](const plist::Value& root) {
                     if (root.asDictionary() == nullptr) {
                         log::debug(kParentApplicationEndpoint.logComponent,
                                    "dropped an archive that holds no dictionary");
                         return;
                     }
                     if (onDictionary)
                         onDictionary(root);
                 }) {}

ParentApplicationReceiver::~ParentApplicationReceiver() = default;

bool ParentApplicationReceiver::isListening() const {
    return m_receiver.isListening();
}

} // namespace vexo::ipc
