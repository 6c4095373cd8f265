#include "platform/ipc/NotifyCenter.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/ipc/NotifyName.h"
#include "platform/ipc/SocketDirectory.h"
#include "platform/ipc/UniqueFd.h"
#include "platform/log/Log.h"

namespace vexo::ipc {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLogComponent = "notify";
constexpr const char* kNotifyDirectory = ".notify";

// Datagrams read per readiness callback, so that one busy name cannot starve the loop; the
// loop calls again while more are queued.
constexpr int kMaximumDatagramsPerWake = 64;

std::string errorText(int error) {
    return std::strerror(error);
}

// Opens (or makes) the directory of `name`'s sockets. Absent: the container is there but
// nobody has ever registered for the name.
SocketDirectory::Lookup openNameDirectory(const fs::path& container, std::string_view name,
                                          SocketDirectory::Create create, SocketDirectory& directory) {
    return SocketDirectory::open(container, fs::path(kNotifyDirectory) / NotifyName::fileName(name), create,
                                 kLogComponent, directory);
}

// A file name for a new registration's socket, unique across processes and restarts.
std::string newSocketName() {
    static const std::uint64_t processSalt = [] {
        std::random_device device;
        return (static_cast<std::uint64_t>(device()) << 32) ^ device();
    }();
    static std::atomic<std::uint64_t> sequence{0};
    char text[64];
    std::snprintf(text, sizeof text, "%ld-%llu-%08llx", static_cast<long>(::getpid()),
                  static_cast<unsigned long long>(sequence++),
                  static_cast<unsigned long long>(processSalt & 0xFFFFFFFFull));
    return text;
}

std::mutex& sharedCentresMutex() {
    static std::mutex mutex;
    return mutex;
}

using SharedCentreKey = std::pair<std::string, const runtime::RunLoop*>;

std::map<SharedCentreKey, std::weak_ptr<NotifyCenter>>& sharedCentres() {
    static std::map<SharedCentreKey, std::weak_ptr<NotifyCenter>> centres;
    return centres;
}

} // namespace

struct NotifyCenter::Registration {
    Registration(const void* observer, std::string name, Callback callback)
        : observer(observer),
          name(std::move(name)),
          callback(std::make_shared<Callback>(std::move(callback))) {}

    ~Registration() {
        watch.reset();
        socket.reset();
        if (!socketName.empty() && ::unlinkat(directory.get(), socketName.c_str(), 0) != 0)
            log::debug(kLogComponent, "cannot remove socket " + socketName + ": " + errorText(errno));
    }

    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    const void* observer;
    const std::string name;
    // Shared so that a callback replaced or removed while it runs lives until it returns.
    std::shared_ptr<Callback> callback;
    UniqueFd directory;
    // Empty until the socket is bound, so that a failed registration removes no file.
    std::string socketName;
    UniqueFd socket;
    std::unique_ptr<runtime::FdWatch> watch;
    bool removed = false;
};

NotifyCenter::NotifyCenter(fs::path container, runtime::RunLoop& loop)
    : m_container(std::move(container)),
      m_loop(loop),
      m_sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}

NotifyCenter::~NotifyCenter() {
    removeIf([](const Registration&) { return true; });
}

std::shared_ptr<NotifyCenter> NotifyCenter::forContainer(const fs::path& container) {
    runtime::RunLoop* loop = runtime::RunLoop::current();
    if (loop == nullptr) {
        log::debug(kLogComponent, "no current run loop for the notify centre of " + container.string());
        return nullptr;
    }
    return forContainer(container, *loop);
}

std::shared_ptr<NotifyCenter> NotifyCenter::forContainer(const fs::path& container, runtime::RunLoop& loop) {
    const std::lock_guard lock(sharedCentresMutex());
    auto& centres = sharedCentres();
    std::erase_if(centres, [](const auto& entry) { return entry.second.expired(); });
    fs::path normal = container.lexically_normal();
    if (!normal.has_filename() && normal != normal.root_path())
        normal = normal.parent_path(); // "group/" is "group"
    const SharedCentreKey key{normal.string(), &loop};
    if (auto centre = centres[key].lock())
        return centre;
    auto centre = std::make_shared<NotifyCenter>(container, loop);
    centres[key] = centre;
    return centre;
}

bool NotifyCenter::addObserver(const void* observer, std::string_view name, Callback callback) {
    if (!callback)
        return false;
    for (const auto& registration : m_registrations) {
        if (registration->observer == observer && registration->name == name) {
            registration->callback = std::make_shared<Callback>(std::move(callback));
            return true;
        }
    }

    SocketDirectory directory;
    if (openNameDirectory(m_container, name, SocketDirectory::Create::Yes, directory) !=
        SocketDirectory::Lookup::Opened)
        return false;
    auto registration = std::make_shared<Registration>(observer, std::string(name), std::move(callback));
    registration->socket.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int enable = 1;
    if (!registration->socket.isValid() ||
        ::setsockopt(registration->socket.get(), SOL_SOCKET, SO_PASSCRED, &enable, sizeof enable) != 0) {
        log::debug(kLogComponent, "cannot make a socket: " + errorText(errno));
        return false;
    }
    // Socket names are unique, so a clash means a stale file of an earlier process: take another.
    for (int attempt = 0; attempt < 4 && registration->socketName.empty(); ++attempt) {
        const std::string socketName = newSocketName();
        const auto address = directory.address(socketName);
        if (!address) {
            log::debug(kLogComponent, "no socket address fits for " + directory.path().string());
            return false;
        }
        if (::bind(registration->socket.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0) {
            registration->socketName = socketName;
        } else if (errno != EADDRINUSE) {
            log::debug(kLogComponent, "cannot bind in " + directory.path().string() + ": " + errorText(errno));
            return false;
        }
    }
    if (registration->socketName.empty())
        return false;
    registration->directory = directory.releaseDescriptor();

    std::weak_ptr<Registration> weak = registration;
    registration->watch = m_loop.watchReadable(registration->socket.get(), [weak] {
        if (const auto strong = weak.lock())
            receive(strong);
    });
    if (!registration->watch) {
        log::debug(kLogComponent, "the run loop cannot watch the socket for \"" + std::string(name) + "\"");
        return false;
    }
    m_registrations.push_back(std::move(registration));
    return true;
}

void NotifyCenter::receive(const std::shared_ptr<Registration>& registration) {
    for (int count = 0; count < kMaximumDatagramsPerWake && !registration->removed; ++count) {
        char byte;
        iovec buffer{&byte, sizeof byte};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
        msghdr message{};
        message.msg_iov = &buffer;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        if (::recvmsg(registration->socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                log::debug(kLogComponent, "cannot receive for \"" + registration->name + "\": " + errorText(errno));
            return;
        }
        if (!SocketDirectory::isSentBySameUser(message)) {
            log::warning(kLogComponent, "dropped a post of \"" + registration->name + "\" from another user");
            continue;
        }
        const std::shared_ptr<Callback> callback = registration->callback;
        (*callback)(registration->name);
    }
}

template <class Predicate> void NotifyCenter::removeIf(Predicate predicate) {
    // Registrations leave the list before they are destroyed, so that a callback run by their
    // destruction sees a consistent list; one whose datagrams are being read lives on until
    // that read returns, and sees `removed`.
    std::vector<std::shared_ptr<Registration>> removed;
    std::erase_if(m_registrations, [&](std::shared_ptr<Registration>& registration) {
        if (!predicate(static_cast<const Registration&>(*registration)))
            return false;
        registration->removed = true;
        removed.push_back(std::move(registration));
        return true;
    });
}

void NotifyCenter::removeObserver(const void* observer, std::string_view name) {
    removeIf([&](const Registration& registration) {
        return registration.observer == observer && registration.name == name;
    });
}

void NotifyCenter::removeEveryObserver(const void* observer) {
    removeIf([&](const Registration& registration) { return registration.observer == observer; });
}

struct NotifyCenter::PostTarget {
    SocketDirectory directory;
    // The sockets found by the last listing, with their addresses.
    std::vector<std::pair<std::string, sockaddr_un>> sockets;
    // The directory as it was listed; a change of any of these lists it again.
    ino_t inode = 0;
    timespec modified{};
    timespec changed{};
    // False when the listing cannot be trusted to show every change before the next one.
    bool trusted = false;
};

namespace {

// Names whose directory post() keeps open; beyond this the kept ones are dropped at once.
constexpr std::size_t kMaximumPostTargets = 256;

bool operator==(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool operator<(const timespec& a, const timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

} // namespace

bool NotifyCenter::post(std::string_view name) const {
    if (!m_sender.isValid()) {
        log::debug(kLogComponent, "no socket to post with");
        return false;
    }
    const std::lock_guard lock(m_postMutex);
    auto found = m_postTargets.find(name);
    if (found == m_postTargets.end()) {
        if (m_postTargets.size() >= kMaximumPostTargets)
            m_postTargets.clear();
        found = m_postTargets.emplace(std::string(name), std::make_unique<PostTarget>()).first;
    }
    PostTarget& target = *found->second;

    // The directory held open is still the name's, unless it was deleted or given away.
    struct stat status {};
    if (target.directory.isOpen() && (::fstat(target.directory.descriptor(), &status) != 0 || status.st_nlink == 0 ||
                                      status.st_uid != ::geteuid())) {
        if (status.st_nlink != 0 && status.st_uid != ::geteuid())
            log::warning(kLogComponent,
                         target.directory.path().string() + " is not a directory of this user; not used");
        target = PostTarget();
    }
    if (!target.directory.isOpen()) {
        switch (openNameDirectory(m_container, name, SocketDirectory::Create::No, target.directory)) {
        case SocketDirectory::Lookup::Opened:
            break;
        case SocketDirectory::Lookup::Absent:
            m_postTargets.erase(found);
            return true;
        case SocketDirectory::Lookup::Failed:
            m_postTargets.erase(found);
            return false;
        }
        if (::fstat(target.directory.descriptor(), &status) != 0) {
            m_postTargets.erase(found);
            return false;
        }
    }

    if (!target.trusted || status.st_ino != target.inode || !(status.st_mtim == target.modified) ||
        !(status.st_ctim == target.changed)) {
        // Any change after this moment gets a timestamp of at least `listedAt`: a listing of a
        // directory last changed before it shows every later change by its times.
        timespec listedAt{};
        ::clock_gettime(CLOCK_REALTIME_COARSE, &listedAt);
        if (::fstat(target.directory.descriptor(), &status) != 0)
            return false;
        const int duplicate = ::openat(target.directory.descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR* listing = duplicate < 0 ? nullptr : ::fdopendir(duplicate);
        if (listing == nullptr) {
            if (duplicate >= 0)
                ::close(duplicate);
            log::debug(kLogComponent, "cannot list " + target.directory.path().string() + ": " + errorText(errno));
            return false;
        }
        target.sockets.clear();
        while (const dirent* entry = ::readdir(listing)) {
            bool isSocket = entry->d_type == DT_SOCK;
            if (entry->d_type == DT_UNKNOWN) {
                struct stat entryStatus {};
                isSocket =
                    ::fstatat(target.directory.descriptor(), entry->d_name, &entryStatus, AT_SYMLINK_NOFOLLOW) == 0 &&
                    S_ISSOCK(entryStatus.st_mode);
            }
            if (!isSocket)
                continue;
            if (const auto address = target.directory.address(entry->d_name))
                target.sockets.emplace_back(entry->d_name, *address);
        }
        ::closedir(listing);
        target.inode = status.st_ino;
        target.modified = status.st_mtim;
        target.changed = status.st_ctim;
        target.trusted = target.modified < listedAt && target.changed < listedAt;
    }

    bool removedAny = false;
    for (const auto& [socketName, address] : target.sockets) {
        if (::sendto(m_sender.get(), "", 0, MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                     sizeof address) == 0)
            continue;
        const int error = errno;
        if (error == ECONNREFUSED) {
            // Nobody is bound to it: its process died without removing it.
            if (::unlinkat(target.directory.descriptor(), socketName.c_str(), 0) == 0)
                log::debug(kLogComponent,
                           "removed the dead socket " + socketName + " of \"" + std::string(name) + "\"");
            removedAny = true;
        } else if (error == EAGAIN || error == EWOULDBLOCK) {
            log::debug(kLogComponent,
                       "a listener of \"" + std::string(name) + "\" has a full queue; post dropped for it");
        } else if (error == ENOENT) {
            removedAny = true;
        } else {
            log::debug(kLogComponent,
                       "cannot post \"" + std::string(name) + "\" to " + socketName + ": " + errorText(error));
        }
    }
    if (removedAny)
        target.trusted = false;
    return true;
}

} // namespace vexo::ipc
