#include "platform/runtime/UserDefaults.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/base/WriteAll.h"
#include "platform/log/Log.h"
#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"

namespace vexo::runtime {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLogComponent = "defaults";

// A defaults file holds a few settings; anything larger is not ours.
constexpr off_t kMaximumFileSize = off_t{16} << 20;

void logFailure(std::string_view what, const fs::path& path, int error) {
    if (log::enabled(log::Level::Debug))
        log::debug(kLogComponent, std::string(what) + " " + path.string() + ": " + std::strerror(error));
}

// The user's home directory: `home` when it is absolute, else the password database's entry.
std::optional<fs::path> homeDirectory(const std::optional<std::string>& home) {
    if (home && home->starts_with('/'))
        return fs::path(*home);
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr && found->pw_dir[0] == '/')
        return fs::path(found->pw_dir);
    return std::nullopt;
}

// Makes every missing directory of `directory`, each with mode 0700.
bool createDirectories(const fs::path& directory) {
    std::vector<fs::path> missing;
    for (fs::path current = directory; !current.empty(); current = current.parent_path()) {
        struct stat status {};
        if (::stat(current.c_str(), &status) == 0)
            break;
        missing.push_back(current);
        if (current == current.parent_path())
            break;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        if (::mkdir(it->c_str(), 0700) != 0 && errno != EEXIST) {
            logFailure("cannot create directory", *it, errno);
            return false;
        }
    }
    return true;
}

// Replaces `path` with `bytes` so that a reader sees the old or the new file, never a part.
void writeAtomically(const fs::path& path, const plist::Data& bytes) {
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
    if (!createDirectories(directory))
        return;
    std::string temporary = (directory / ("." + path.filename().string() + ".XXXXXX")).string();
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        logFailure("cannot create a temporary file for", path, errno);
        return;
    }
    bool done = writeAll(fd, bytes) && ::fsync(fd) == 0;
    int error = errno;
    done = ::close(fd) == 0 && done;
    if (done && ::rename(temporary.c_str(), path.c_str()) != 0) {
        error = errno;
        done = false;
    }
    if (!done) {
        logFailure("cannot write", path, error);
        ::unlink(temporary.c_str());
    }
}

} // namespace

UserDefaults::UserDefaults(fs::path file)
    : m_file(std::move(file)),
      m_values(load()) {}

fs::path UserDefaults::standardPath(std::string_view domain, const UserDirectories& directories) {
    fs::path base;
    if (const auto& configHome = directories.configHome; configHome && configHome->starts_with('/')) {
        base = *configHome;
    } else if (const auto home = homeDirectory(directories.home)) {
        base = *home / ".config";
    } else {
        log::debug(kLogComponent, "no home directory: the defaults of \"" + std::string(domain) + "\" stay in memory");
        return {};
    }
    // Only "/" and NUL could make the name leave the directory or cut it short; ".." cannot,
    // since the suffix makes it "...plist". "%" is escaped too, so distinct domains never meet.
    std::string name;
    for (const char c : domain) {
        if (c == '/' || c == '\0' || c == '%') {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned char>(c));
            name += escaped;
        } else {
            name += c;
        }
    }
    return base / "vexo" / (name + ".plist");
}

plist::Dictionary UserDefaults::load() const {
    if (m_file.empty())
        return {};
    // Non-blocking, so that a FIFO put in the file's place cannot stop us in open().
    const int fd = ::open(m_file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno != ENOENT)
            logFailure("cannot open", m_file, errno);
        else
            log::debug(kLogComponent, "no defaults in " + m_file.string() + " yet");
        return {};
    }
    plist::Data bytes;
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > kMaximumFileSize) {
        log::debug(kLogComponent, "ignoring " + m_file.string() + ": not a regular file of at most 16 MiB");
        ::close(fd);
        return {};
    }
    bytes.resize(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = ::read(fd, bytes.data() + filled, bytes.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        filled += static_cast<std::size_t>(count);
    }
    ::close(fd);
    if (filled != bytes.size()) {
        log::debug(kLogComponent, "cannot read " + m_file.string() + "; starting empty");
        return {};
    }

    const Expected<plist::Value> root = plist::KeyedUnarchiver::unarchive(bytes);
    if (!root) {
        log::debug(kLogComponent, "ignoring corrupt " + m_file.string() + ": " + root.error().message());
        return {};
    }
    const plist::Dictionary* values = root->asDictionary();
    if (values == nullptr) {
        log::debug(kLogComponent, "ignoring " + m_file.string() + ": its root is not a dictionary");
        return {};
    }
    return *values;
}

bool UserDefaults::persist(const plist::Dictionary& values) const {
    const std::optional<plist::Data> bytes = plist::KeyedArchiver::archivedData(plist::Value(values));
    if (!bytes) {
        log::warning(kLogComponent, "a value too deeply nested to store was refused");
        return false;
    }
    if (!m_file.empty())
        writeAtomically(m_file, *bytes);
    return true;
}

void UserDefaults::registerDefaults(const plist::Dictionary& defaults) {
    const std::lock_guard lock(m_mutex);
    for (const auto& [key, value] : defaults)
        m_registered.insert_or_assign(key, value);
}

plist::Value UserDefaults::objectForKey(std::string_view key) const {
    const std::lock_guard lock(m_mutex);
    if (const auto it = m_values.find(key); it != m_values.end())
        return it->second;
    if (const auto it = m_registered.find(key); it != m_registered.end())
        return it->second;
    return {};
}

std::int64_t UserDefaults::integerForKey(std::string_view key) const {
    return objectForKey(key).integerValue();
}

bool UserDefaults::boolForKey(std::string_view key) const {
    return objectForKey(key).boolValue();
}

double UserDefaults::doubleForKey(std::string_view key) const {
    return objectForKey(key).doubleValue();
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
    return objectForKey(key).stringValue();
}

void UserDefaults::setObject(const plist::Value& value, std::string_view key) {
    if (value.isNull()) {
        removeObjectForKey(key);
        return;
    }
    // The file is written under the lock, so that two writers' files follow the order of
    // their changes. The change is archived before it is kept: one value that cannot be
    // stored must not stop every later write.
    const std::lock_guard lock(m_mutex);
    plist::Dictionary changed = m_values;
    changed.insert_or_assign(std::string(key), value);
    if (persist(changed))
        m_values = std::move(changed);
}

void UserDefaults::setInteger(std::int64_t value, std::string_view key) {
    setObject(plist::Value(value), key);
}

void UserDefaults::setBool(bool value, std::string_view key) {
    setObject(plist::Value(value), key);
}

void UserDefaults::setDouble(double value, std::string_view key) {
    setObject(plist::Value(value), key);
}

void UserDefaults::removeObjectForKey(std::string_view key) {
    const std::lock_guard lock(m_mutex);
    const auto it = m_values.find(key);
    if (it == m_values.end())
        return;
    m_values.erase(it);
    (void)persist(m_values);
}

} // namespace vexo::runtime
