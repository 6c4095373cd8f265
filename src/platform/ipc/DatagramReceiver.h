#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "platform/ipc/DatagramEndpoint.h"
#include "platform/plist/Value.h"
#include "platform/runtime/RunLoop.h"

// The listening end of a DatagramEndpoint: it binds the endpoint's socket in the shared
// container and hands the root value of each datagram's keyed archive to a callback on the
// loop. ParentApplicationReceiver and LocalNotificationReceiver each check the value's shape.
//
// Only one receiver listens per container and endpoint, the one that holds the lock. A
// socket file left by a process that died is replaced; one whose owner still runs is never
// taken over. Datagrams that are no keyed archive, that were cut short or exceed the
// endpoint's maximum size, or that come from another user are dropped with a debug log line
// under the endpoint's log component.
namespace vexo::ipc {

class DatagramReceiver {
public:
    using Callback = std::function<void(const plist::Value& root)>;

    // Listens for `endpoint` in `container` (a directory made by Container), calling
    // `onValue` on `loop` for each archive, in the order they arrive. When it cannot listen
    // (another receiver runs, or the socket cannot be made) it says why in a log line and
    // isListening() is false. REQUIRES: `loop`, and the text `endpoint` points at, outlive
    // the receiver. Loop thread only.
    DatagramReceiver(const DatagramEndpoint& endpoint, std::filesystem::path container, runtime::RunLoop& loop,
                     Callback onValue);

    // Stops listening and removes the socket when it is still ours. Loop thread only; safe
    // inside the callback, which then is not called again.
    ~DatagramReceiver();

    DatagramReceiver(const DatagramReceiver&) = delete;
    DatagramReceiver& operator=(const DatagramReceiver&) = delete;
    DatagramReceiver(DatagramReceiver&&) = delete;
    DatagramReceiver& operator=(DatagramReceiver&&) = delete;

    [[nodiscard]] bool isListening() const;

private:
    struct State;

    static void receive(const std::shared_ptr<State>& state);
    [[nodiscard]] bool listen();

    // Shared with the readiness callback, which must see a receiver destroyed inside it.
    std::shared_ptr<State> m_state;
};

} // namespace vexo::ipc
