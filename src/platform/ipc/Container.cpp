#include "platform/ipc/Container.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/ipc/NotifyName.h"
#include "platform/log/Log.h"

namespace vexo::ipc {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLogComponent = "container";

enum class FinalLink { Follow, Refuse };
enum class Permissions { Keep, MakePrivate };

bool isPlainComponent(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

// Makes `directory` (mode 0700 when created) and checks that it is a directory of ours.
bool ensureOwnDirectory(const fs::path& directory, FinalLink finalLink, Permissions permissions) {
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
        log::debug(kLogComponent, "cannot create " + directory.string() + ": " + std::strerror(errno));
        return false;
    }
    struct stat status {};
    const int result =
        finalLink == FinalLink::Follow ? ::stat(directory.c_str(), &status) : ::lstat(directory.c_str(), &status);
    if (result != 0) {
        log::debug(kLogComponent, "cannot examine " + directory.string() + ": " + std::strerror(errno));
        return false;
    }
    if (S_ISLNK(status.st_mode)) {
        log::warning(kLogComponent, directory.string() + " is a symbolic link; not used");
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        log::warning(kLogComponent, directory.string() + " is not a directory; not used");
        return false;
    }
    if (status.st_uid != ::geteuid()) {
        log::warning(kLogComponent, directory.string() + " belongs to another user; not used");
        return false;
    }
    if (permissions == Permissions::MakePrivate && (status.st_mode & 077) != 0 &&
        ::chmod(directory.c_str(), 0700) != 0) {
        log::debug(kLogComponent, "cannot make " + directory.string() + " private: " + std::strerror(errno));
        return false;
    }
    return true;
}

// Makes every missing directory of an absolute `path`, each with mode 0700.
bool makeMissingDirectories(const fs::path& path) {
    fs::path prefix;
    for (const fs::path& component : path) {
        prefix /= component;
        if (prefix == prefix.root_path())
            continue;
        if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) {
            log::debug(kLogComponent, "cannot create " + prefix.string() + ": " + std::strerror(errno));
            return false;
        }
    }
    return true;
}

std::optional<fs::path> root(const Container::Location& location) {
    if (const auto& configured = location.root; configured && !configured->empty()) {
        const fs::path path = fs::path(*configured).lexically_normal();
        if (!path.is_absolute()) {
            log::warning(kLogComponent, "VEXO_CONTAINER_ROOT is not an absolute path: " + *configured);
            return std::nullopt;
        }
        // The user chose this directory, so a symbolic link to it is fine and its mode is theirs.
        if (!makeMissingDirectories(path) || !ensureOwnDirectory(path, FinalLink::Follow, Permissions::Keep))
            return std::nullopt;
        return path;
    }
    if (const auto& runtimeDirectory = location.runtimeDirectory; runtimeDirectory && !runtimeDirectory->empty()) {
        const fs::path base = fs::path(*runtimeDirectory).lexically_normal();
        // A relative value is to be ignored, as the XDG base-directory rules say.
        if (base.is_absolute()) {
            const fs::path path = base / "vexo";
            if (!ensureOwnDirectory(path, FinalLink::Refuse, Permissions::MakePrivate))
                return std::nullopt;
            return path;
        }
        log::debug(kLogComponent, "XDG_RUNTIME_DIR is not absolute; ignored");
    }
    const fs::path path = fs::path("/tmp") / ("vexo-" + std::to_string(::geteuid()));
    if (!ensureOwnDirectory(path, FinalLink::Refuse, Permissions::MakePrivate))
        return std::nullopt;
    return path;
}

// The container found last, with what it was found from. Every message access asks for the
// container, so a repeated question is answered with one lstat instead of walking the root.
struct VerifiedContainer {
    std::uint64_t generation;
    std::string group;
    fs::path path;
};

std::mutex g_mutex;
Container::Location g_location;
std::uint64_t g_generation = 0;
std::optional<VerifiedContainer> g_verified;

// Still a private directory of ours, as it was when verified?
bool isStillOurs(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() &&
           (status.st_mode & 077) == 0;
}

} // namespace

void Container::setLocation(Location location) {
    std::lock_guard lock(g_mutex);
    g_location = std::move(location);
    ++g_generation;
    g_verified.reset();
}

Container::Location Container::location() {
    std::lock_guard lock(g_mutex);
    return g_location;
}

std::uint64_t Container::locationGeneration() {
    std::lock_guard lock(g_mutex);
    return g_generation;
}

std::optional<fs::path> Container::pathForGroup(std::string_view group) {
    if (!isPlainComponent(group)) {
        // Escaped, so that a NUL or a control character cannot garble the log line.
        log::debug(kLogComponent, "not a usable group identifier: \"" + NotifyName::fileName(group) + "\"");
        return std::nullopt;
    }
    Location location;
    std::uint64_t generation = 0;
    {
        std::lock_guard lock(g_mutex);
        if (g_verified && g_verified->generation == g_generation && g_verified->group == group &&
            isStillOurs(g_verified->path))
            return g_verified->path;
        location = g_location;
        generation = g_generation;
    }
    const auto base = root(location);
    if (!base)
        return std::nullopt;
    fs::path container = *base / std::string(group);
    if (!ensureOwnDirectory(container, FinalLink::Refuse, Permissions::MakePrivate))
        return std::nullopt;
    std::lock_guard lock(g_mutex);
    g_verified = VerifiedContainer{generation, std::string(group), container};
    return container;
}

} // namespace vexo::ipc
