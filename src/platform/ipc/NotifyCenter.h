#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ipc/UniqueFd.h"
#include "platform/runtime/RunLoop.h"

// Cross-process notifications addressed by name alone, with no payload: the user's processes
// that share a container post and observe them (the host platform's Darwin notify centre).
//
// There is no daemon. Every registration binds its own UNIX datagram socket in
// `<container>/.notify/<NotifyName::fileName(name)>/`; a post sends one empty datagram to
// each socket there and removes the sockets whose owner has died. So one post reaches every
// registration for the name once, in this process and in every other one, each through the
// registration's own callback on the loop it was made on. Only the user's own processes can
// reach the sockets (the directories are private), and a datagram from another user is
// dropped all the same.
//
// A post does not list the name's directory each time: the sockets found are kept with the
// directory's modification and change times and listed again only when those move (or
// when the listing was made within the file system's timestamp granularity of a change,
// which could hide a second change in the same tick). So a post costs one fstat and one
// sendto per listener while registrations stay as they are.
//
// A registration that leaves more posts unread than the kernel queues for a datagram socket
// (net.unix.max_dgram_qlen) misses the excess; it has that many wake-ups waiting already.
namespace vexo::ipc {

class NotifyCenter {
public:
    // Receives the name it was registered for.
    using Callback = std::function<void(const std::string& name)>;

    // A centre for `container` (a directory made by Container) delivering on `loop`.
    // REQUIRES: `loop` outlives the centre. Touches no file until the first registration.
    NotifyCenter(std::filesystem::path container, runtime::RunLoop& loop);

    // Removes every registration, deleting its socket.
    ~NotifyCenter();

    NotifyCenter(const NotifyCenter&) = delete;
    NotifyCenter& operator=(const NotifyCenter&) = delete;
    NotifyCenter(NotifyCenter&&) = delete;
    NotifyCenter& operator=(NotifyCenter&&) = delete;

    // The centre shared by every user of `container` on the calling thread's current loop,
    // made on first use and kept while someone holds it. Nothing when the thread has no
    // current loop. REQUIRES: the loop outlives every holder. Thread-safe.
    [[nodiscard]] static std::shared_ptr<NotifyCenter> forContainer(const std::filesystem::path& container);

    // As above, on `loop`.
    [[nodiscard]] static std::shared_ptr<NotifyCenter> forContainer(const std::filesystem::path& container,
                                                                    runtime::RunLoop& loop);

    // Calls `callback` on the loop once for every post of `name` from now on. `observer` is an
    // identity for removal; a second registration of the same observer and name replaces the
    // callback and stays one registration. Returns false, with a log line, when the
    // registration cannot be made. Loop thread only.
    bool addObserver(const void* observer, std::string_view name, Callback callback);

    // Ends the registration of `observer` for `name`, if any; its callback is not called
    // again, even for posts already received. Loop thread only; safe inside a callback.
    void removeObserver(const void* observer, std::string_view name);

    // Ends every registration of `observer`. Loop thread only; safe inside a callback.
    void removeEveryObserver(const void* observer);

    // Posts `name` to every registration for it in every process of the user. Returns whether
    // the post could be attempted (the container is usable); true also when nobody listens.
    // Thread-safe.
    bool post(std::string_view name) const;

    [[nodiscard]] const std::filesystem::path& container() const { return m_container; }
    [[nodiscard]] runtime::RunLoop& loop() const { return m_loop; }

private:
    struct Registration;
    struct PostTarget;

    static void receive(const std::shared_ptr<Registration>& registration);
    template <class Predicate> void removeIf(Predicate predicate);

    std::filesystem::path m_container;
    runtime::RunLoop& m_loop;
    std::vector<std::shared_ptr<Registration>> m_registrations;
    // One unbound socket serves every post; sendto on it is safe from any thread.
    UniqueFd m_sender;
    // What post() knows of each name's directory, by name; guarded by m_postMutex.
    mutable std::mutex m_postMutex;
    mutable std::map<std::string, std::unique_ptr<PostTarget>, std::less<>> m_postTargets;
};

} // namespace vexo::ipc
