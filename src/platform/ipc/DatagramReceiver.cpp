#include "platform/ipc/DatagramReceiver.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ipc/SocketDirectory.h"
#include "platform/ipc/UniqueFd.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedUnarchiver.h"

namespace vexo::ipc {
namespace {

// Datagrams read per readiness callback, so that a flood cannot starve the loop; the loop
// calls again while more are queued.
constexpr int kMaximumDatagramsPerWake = 64;

std::string errorText(int error) {
    return std::strerror(error);
}

} // namespace

struct DatagramReceiver::State {
    State(const DatagramEndpoint& endpoint, std::filesystem::path container, runtime::RunLoop& loop, Callback callback)
        : endpoint(endpoint),
          container(std::move(container)),
          loop(loop),
          callback(std::move(callback)) {}

    // Stops listening: no callback after this, the socket file removed when it is still ours.
    void stop();

    const DatagramEndpoint endpoint;
    std::filesystem::path container;
    runtime::RunLoop& loop;
    Callback callback;
    SocketDirectory directory;
    // Held, with an exclusive lock, for as long as we listen: whoever holds it owns the socket.
    UniqueFd lock;
    UniqueFd socket;
    // The socket file we bound, so that we never remove one that is not ours.
    ino_t socketInode = 0;
    std::unique_ptr<runtime::FdWatch> watch;
    // One buffer, one byte longer than the largest message, so that a longer one shows as cut.
    plist::Data buffer;
    bool closed = false;
};

void DatagramReceiver::State::stop() {
    closed = true;
    watch.reset();
    const std::string_view logComponent = endpoint.logComponent;
    if (socket.isValid() && socketInode != 0) {
        struct stat status {};
        const std::string name(endpoint.socketName);
        if (::fstatat(directory.descriptor(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            status.st_ino == socketInode && ::unlinkat(directory.descriptor(), name.c_str(), 0) != 0)
            log::debug(logComponent,
                       "cannot remove " + directory.path().string() + "/" + name + ": " + errorText(errno));
    }
    // A readiness callback in progress checks `closed` before it reads again, so closing here
    // never lets it read a reused descriptor number.
    socket.reset();
    lock.reset();
}

DatagramReceiver::DatagramReceiver(const DatagramEndpoint& endpoint, std::filesystem::path container,
                                   runtime::RunLoop& loop, Callback onValue)
    : m_state(std::make_shared<State>(endpoint, std::move(container), loop, std::move(onValue))) {
    if (!listen())
        m_state->stop();
}

DatagramReceiver::~DatagramReceiver() {
    m_state->stop();
}

bool DatagramReceiver::isListening() const {
    return m_state->socket.isValid() && !m_state->closed;
}

bool DatagramReceiver::listen() {
    State& state = *m_state;
    const DatagramEndpoint& endpoint = state.endpoint;
    const std::string_view logComponent = endpoint.logComponent;
    if (endpoint.openDirectory(state.container, SocketDirectory::Create::Yes, state.directory) !=
        SocketDirectory::Lookup::Opened)
        return false;
    const std::string where = endpoint.socketPath(state.container).string();

    const std::string lockName(endpoint.lockName);
    state.lock.reset(
        ::openat(state.directory.descriptor(), lockName.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!state.lock.isValid()) {
        log::debug(logComponent, "cannot open the lock beside " + where + ": " + errorText(errno));
        return false;
    }
    if (::flock(state.lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            log::warning(logComponent,
                         "another " + std::string(endpoint.listenerName) + " already listens at " + where);
        else
            log::debug(logComponent, "cannot lock " + where + ": " + errorText(errno));
        return false;
    }

    const auto address = state.directory.address(endpoint.socketName);
    if (!address) {
        log::debug(logComponent, "no socket address fits " + where);
        return false;
    }
    const sockaddr* socketAddress = reinterpret_cast<const sockaddr*>(&*address);

    // The lock keeps out our own kind; a process that binds without it (an older build, say)
    // is found by connecting, and is left alone.
    const UniqueFd probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (probe.isValid() && ::connect(probe.get(), socketAddress, sizeof *address) == 0) {
        log::warning(logComponent, "a live process holds " + where + "; not taking it over");
        return false;
    }
    const std::string socketName(endpoint.socketName);
    if (::unlinkat(state.directory.descriptor(), socketName.c_str(), 0) == 0)
        log::debug(logComponent, "replaced the stale socket " + where);

    state.socket.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int enable = 1;
    if (!state.socket.isValid() ||
        ::setsockopt(state.socket.get(), SOL_SOCKET, SO_PASSCRED, &enable, sizeof enable) != 0) {
        log::debug(logComponent, "cannot make a socket: " + errorText(errno));
        return false;
    }
    if (::bind(state.socket.get(), socketAddress, sizeof *address) != 0) {
        log::debug(logComponent, "cannot bind " + where + ": " + errorText(errno));
        return false;
    }
    struct stat status {};
    if (::fstatat(state.directory.descriptor(), socketName.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        state.socketInode = status.st_ino;

    state.buffer.resize(endpoint.maximumMessageSize + 1);
    std::weak_ptr<State> weak = m_state;
    state.watch = state.loop.watchReadable(state.socket.get(), [weak] {
        if (const auto strong = weak.lock())
            receive(strong);
    });
    if (!state.watch) {
        log::debug(logComponent, "the run loop cannot watch " + where);
        return false;
    }
    return true;
}

void DatagramReceiver::receive(const std::shared_ptr<State>& state) {
    const DatagramEndpoint& endpoint = state->endpoint;
    const std::string_view logComponent = endpoint.logComponent;
    for (int count = 0; count < kMaximumDatagramsPerWake && !state->closed; ++count) {
        iovec buffer{state->buffer.data(), state->buffer.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
        msghdr message{};
        message.msg_iov = &buffer;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t length = ::recvmsg(state->socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (length < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                log::debug(logComponent, "cannot receive: " + errorText(errno));
            return;
        }
        if (!SocketDirectory::isSentBySameUser(message)) {
            log::debug(logComponent, "dropped a datagram from another user");
            continue;
        }
        if ((message.msg_flags & MSG_TRUNC) != 0 || static_cast<std::size_t>(length) > endpoint.maximumMessageSize) {
            log::debug(logComponent,
                       "dropped a datagram larger than " + std::to_string(endpoint.maximumMessageSize) + " bytes");
            continue;
        }
        const Expected<plist::Value> decoded = plist::KeyedUnarchiver::unarchive(
            std::span<const std::uint8_t>(state->buffer.data(), static_cast<std::size_t>(length)));
        if (!decoded) {
            log::debug(logComponent, "dropped a datagram that is no keyed archive: " + decoded.error().message());
            continue;
        }
        if (state->callback)
            state->callback(*decoded);
    }
}

} // namespace vexo::ipc
