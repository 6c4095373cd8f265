#include "face/DeviceTokens.h"

#include <algorithm>

#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "face/JsonText.h"
#include "face/RandomSecret.h"
#include "face/SecretFiles.h"

namespace vexo::face {

namespace {

constexpr std::size_t kTokenBytes = 32;

std::int64_t seconds(DeviceTokens::Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

} // namespace

DeviceTokens::DeviceTokens(std::filesystem::path folder)
    : m_folder(std::move(folder)),
      m_file(m_folder / "devices.json") {
    FolderLock lock(m_folder);
    load();
}

DeviceTokens::FileStamp DeviceTokens::stamp() const {
    struct stat status {};
    if (::stat(m_file.c_str(), &status) != 0)
        return {};
    return {static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec,
            static_cast<std::uint64_t>(status.st_ino), static_cast<std::int64_t>(status.st_size)};
}

void DeviceTokens::load() {
    m_stamp = stamp();
    m_devices.clear();
    std::optional<std::string> text = readSmallFile(m_file);
    std::optional<nlohmann::json> stored = text ? parseJsonText(*text) : std::nullopt;
    if (!stored || !stored->is_object() || !(*stored)["devices"].is_array())
        return;
    for (const auto& entry : (*stored)["devices"]) {
        if (!entry.is_object() || !entry.value("name", nlohmann::json()).is_string() ||
            !entry.value("hash", nlohmann::json()).is_string())
            continue;
        PairedDevice device;
        device.name = entry["name"];
        device.tokenHash = entry["hash"];
        device.pairedAt = entry.value("paired", std::int64_t{0});
        device.lastUsed = entry.value("lastUsed", std::int64_t{0});
        m_devices.push_back(std::move(device));
    }
}

bool DeviceTokens::store() {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& device : m_devices)
        list.push_back({{"name", device.name},
                        {"hash", device.tokenHash},
                        {"paired", device.pairedAt},
                        {"lastUsed", device.lastUsed}});
    bool stored = writeFileAtomically(m_file, nlohmann::json{{"devices", list}}.dump(1));
    m_stamp = stamp();
    return stored;
}

bool DeviceTokens::refresh() {
    if (stamp() == m_stamp)
        return false;
    FolderLock lock(m_folder);
    load();
    return true;
}

std::optional<DeviceTokens::Pairing> DeviceTokens::add(std::string_view wantedName, Clock::time_point now) {
    std::optional<std::string> token = makeRandomSecret(kTokenBytes);
    if (!token)
        return std::nullopt;
    FolderLock lock(m_folder);
    load();
    if (m_devices.size() >= kMaximumDevices)
        return std::nullopt;
    std::string base = cleanName(wantedName);
    if (base.empty())
        base = "Device";
    std::string name = base;
    auto taken = [this](const std::string& candidate) {
        return std::any_of(m_devices.begin(), m_devices.end(),
                           [&](const PairedDevice& d) { return d.name == candidate; });
    };
    for (int suffix = 2; taken(name); ++suffix)
        name = base.substr(0, kMaximumNameLength - 4) + " " + std::to_string(suffix);
    m_devices.push_back({name, hashOfSecret(*token), seconds(now), seconds(now)});
    if (!store()) {
        load();
        return std::nullopt;
    }
    return Pairing{name, *token};
}

std::optional<std::string> DeviceTokens::authenticate(std::string_view token, Clock::time_point now) {
    if (!looksLikeSecret(token))
        return std::nullopt;
    refresh();
    const std::string hash = hashOfSecret(token);
    auto found =
        std::find_if(m_devices.begin(), m_devices.end(), [&](const PairedDevice& d) { return d.tokenHash == hash; });
    if (found == m_devices.end())
        return std::nullopt;
    std::string name = found->name;
    if (seconds(now) - found->lastUsed >= kLastUseResolution.count()) {
        FolderLock lock(m_folder);
        load();
        for (auto& device : m_devices) {
            if (device.tokenHash == hash) {
                device.lastUsed = seconds(now);
                // A failed note of the last use costs nothing but that note.
                (void)store();
                return device.name;
            }
        }
        // Revoked by another process a moment ago.
        return std::nullopt;
    }
    return name;
}

bool DeviceTokens::holdsHash(std::string_view tokenHash) const {
    return std::any_of(m_devices.begin(), m_devices.end(),
                       [&](const PairedDevice& d) { return d.tokenHash == tokenHash; });
}

std::vector<PairedDevice> DeviceTokens::devices() {
    refresh();
    return m_devices;
}

bool DeviceTokens::revoke(std::string_view name) {
    FolderLock lock(m_folder);
    load();
    auto found =
        std::find_if(m_devices.begin(), m_devices.end(), [&](const PairedDevice& d) { return d.name == name; });
    if (found == m_devices.end())
        return false;
    m_devices.erase(found);
    if (!store()) {
        load();
        return false;
    }
    return true;
}

DeviceTokens::RenameResult DeviceTokens::rename(std::string_view from, std::string_view to) {
    std::string name = cleanName(to);
    if (name.empty())
        return RenameResult::BadName;
    FolderLock lock(m_folder);
    load();
    auto found =
        std::find_if(m_devices.begin(), m_devices.end(), [&](const PairedDevice& d) { return d.name == from; });
    if (found == m_devices.end())
        return RenameResult::NoSuchDevice;
    if (name != from &&
        std::any_of(m_devices.begin(), m_devices.end(), [&](const PairedDevice& d) { return d.name == name; }))
        return RenameResult::NameTaken;
    found->name = name;
    if (!store()) {
        load();
        return RenameResult::NotStored;
    }
    return RenameResult::Renamed;
}

std::string DeviceTokens::cleanName(std::string_view name) {
    std::string clean;
    bool space = false;
    for (char c : name) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || c == ' ') {
            space = !clean.empty();
            continue;
        }
        if (space)
            clean += ' ';
        space = false;
        clean += c;
    }
    if (clean.size() > kMaximumNameLength) {
        clean.resize(kMaximumNameLength);
        // Never end inside a UTF-8 sequence.
        while (!clean.empty() && (static_cast<unsigned char>(clean.back()) & 0xc0) == 0x80)
            clean.pop_back();
        if (!clean.empty() && static_cast<unsigned char>(clean.back()) >= 0xc0)
            clean.pop_back();
        while (!clean.empty() && clean.back() == ' ')
            clean.pop_back();
    }
    return clean;
}

std::string DeviceTokens::nameForUserAgent(std::string_view agent) {
    std::string browser = contains(agent, "Firefox/")  ? "Firefox"
                          : contains(agent, "Edg")     ? "Edge"
                          : contains(agent, "Chrome/") ? "Chrome"
                          : contains(agent, "Safari/") ? "Safari"
                                                       : "Browser";
    std::string system = contains(agent, "iPhone")      ? "iPhone"
                         : contains(agent, "iPad")      ? "iPad"
                         : contains(agent, "Android")   ? "Android"
                         : contains(agent, "Watch")     ? "watch"
                         : contains(agent, "Windows")   ? "Windows"
                         : contains(agent, "Macintosh") ? "Mac"
                         : contains(agent, "CrOS")      ? "ChromeOS"
                         : contains(agent, "Linux")     ? "Linux"
                                                        : "";
    return system.empty() ? browser : browser + " on " + system;
}

} // namespace vexo::face
