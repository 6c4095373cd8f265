#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The paired devices: a name each (unique, chosen by the user or made from the device's
// user agent) and the SHA-256 of its token, in `<folder>/devices.json`. The token itself is
// handed to the device once and stored nowhere. Every change is a read-modify-write under
// the folder's lock, so the running watch and `vexo-watch revoke` never undo each other;
// refresh() picks up what another process changed. Not thread-safe: one object per thread.
namespace vexo::face {

struct PairedDevice {
    std::string name;
    std::string tokenHash;
    std::int64_t pairedAt = 0; // seconds since the epoch
    std::int64_t lastUsed = 0; // seconds since the epoch; at most kLastUseResolution old
};

class DeviceTokens {
public:
    using Clock = std::chrono::system_clock;
    // A device's last use is written at most this often, not on every request.
    static constexpr std::chrono::seconds kLastUseResolution{60};
    static constexpr std::size_t kMaximumNameLength = 40;
    static constexpr std::size_t kMaximumDevices = 64;

    struct Pairing {
        std::string name;
        std::string token;
    };

    // REQUIRES: `folder` exists and is the user's own (see makePrivateFolder).
    explicit DeviceTokens(std::filesystem::path folder);

    // Pairs a new device named `wantedName` (cleaned; made unique with " 2", " 3"...).
    // Nothing when the list is full or cannot be stored.
    [[nodiscard]] std::optional<Pairing> add(std::string_view wantedName, Clock::time_point now);

    // The name of the device that holds `token`, or nothing. Notes the use.
    [[nodiscard]] std::optional<std::string> authenticate(std::string_view token, Clock::time_point now);

    // True while `tokenHash` belongs to a paired device (as of the last refresh).
    [[nodiscard]] bool holdsHash(std::string_view tokenHash) const;

    [[nodiscard]] std::vector<PairedDevice> devices();

    // False when no device has that name (or the change cannot be stored).
    [[nodiscard]] bool revoke(std::string_view name);
    enum class RenameResult { Renamed, NoSuchDevice, BadName, NameTaken, NotStored };
    [[nodiscard]] RenameResult rename(std::string_view from, std::string_view to);

    // Reads the file again when it changed since this object last read or wrote it; true when
    // the list may have changed.
    bool refresh();

    // `name` with control characters dropped, spaces collapsed and cut to kMaximumNameLength;
    // empty when nothing is left.
    [[nodiscard]] static std::string cleanName(std::string_view name);
    // A short name such as "Chrome on Android" for a User-Agent header.
    [[nodiscard]] static std::string nameForUserAgent(std::string_view userAgent);

private:
    struct FileStamp {
        std::int64_t modified = 0;
        std::uint64_t inode = 0;
        std::int64_t size = -1;
        bool operator==(const FileStamp&) const = default;
    };

    FileStamp stamp() const;
    void load();
    bool store();

    std::filesystem::path m_folder;
    std::filesystem::path m_file;
    std::vector<PairedDevice> m_devices;
    FileStamp m_stamp;
};

} // namespace vexo::face
