#pragma once

#include <filesystem>
#include <functional>

#include "platform/ipc/DatagramReceiver.h"
#include "platform/plist/Value.h"
#include "platform/runtime/RunLoop.h"

// The phone application's end of the parent-application call: it listens on the socket in
// the shared container (see kParentApplicationEndpoint) and hands each dictionary the watch
// sends to a callback on the loop. The listening is DatagramReceiver's; this class adds
// that the archive must hold a dictionary.
//
// Only one receiver listens per container. A socket file left by a process that died is
// replaced; one whose owner still runs is never taken over. Datagrams that do not decode to
// a dictionary, that were cut short, or that come from another user are dropped with a debug
// log line.
namespace vexo::ipc {

class ParentApplicationReceiver {
public:
    using Callback = std::function<void(const plist::Value& dictionary)>;

    // Listens in `container` (a directory made by Container), calling `onDictionary` on `loop`
    // for each dictionary, in the order they arrive. When it cannot listen (another receiver
    // runs, or the socket cannot be made) it says why in a log line and isListening() is
    // false. REQUIRES: `loop` outlives the receiver. Loop thread only.
    ParentApplicationReceiver(std::filesystem::path container, runtime::RunLoop& loop, Callback onDictionary);

    // Stops listening and removes the socket. Loop thread only; safe inside the callback.
    ~ParentApplicationReceiver();

    ParentApplicationReceiver(const ParentApplicationReceiver&) = delete;
    ParentApplicationReceiver& operator=(const ParentApplicationReceiver&) = delete;
    ParentApplicationReceiver(ParentApplicationReceiver&&) = delete;
    ParentApplicationReceiver& operator=(ParentApplicationReceiver&&) = delete;

    [[nodiscard]] bool isListening() const;

private:
    DatagramReceiver m_receiver;
};

} // namespace vexo::ipc
