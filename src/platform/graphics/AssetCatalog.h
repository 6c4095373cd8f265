#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The application's own images, looked up by name as the screens name them ("turntable-play",
// "tracking-12-f.png"): one PNG file per name in one directory. The build draws them into
// the build tree, installation copies them; a configured directory (VEXO_ASSET_DIR) points
// elsewhere. Files are read once and kept. Thread-safe.
namespace vexo::graphics {

class AssetCatalog {
public:
    // Frames of the empty-deck artwork animations, named "<prefix><i>" for i in 0..count-1
    // with the prefixes below.
    static constexpr int kArtworkAnimationFrameCount = 24;
    static constexpr std::string_view kTurntableArtworkAnimationPrefix = "turntable-artwork-animation-";
    static constexpr std::string_view kMixerArtworkAnimationPrefix = "mixer-turntable-artwork-animation-";

    // A catalogue of the PNG files in `directory`; the directory is read lazily.
    explicit AssetCatalog(std::filesystem::path directory);
    AssetCatalog(const AssetCatalog&) = delete;
    AssetCatalog& operator=(const AssetCatalog&) = delete;

    // The directory the program was told to use (VEXO_ASSET_DIR); nothing or an empty path
    // means none. Call at start-up, before shared() is first used. Thread-safe.
    static void setConfiguredDirectory(std::optional<std::filesystem::path> directory);

    // The configured directory when there is one, else the installed `share/vexo/assets`
    // beside the program, else the build tree's asset directory.
    [[nodiscard]] static std::filesystem::path defaultDirectory();

    // The process-wide catalogue on defaultDirectory(), made on first use.
    static AssetCatalog& shared();

    [[nodiscard]] const std::filesystem::path& directory() const { return m_directory; }

    // The file that holds the image `name` (given with or without ".png"), or nothing when
    // the name is malformed (empty, a path, hidden, NUL) or no such file exists.
    [[nodiscard]] std::optional<std::filesystem::path> pathForImage(std::string_view name) const;

    // The PNG bytes of the image `name` (with or without ".png"), or nothing as for
    // pathForImage() and when the file cannot be read.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> imageNamed(std::string_view name) const;

    // Every name the screens use, without ".png"; the build draws exactly these.
    [[nodiscard]] static const std::vector<std::string>& allNames();

private:
    std::filesystem::path m_directory;
    mutable std::mutex m_mutex;
    mutable std::map<std::string, std::vector<std::uint8_t>, std::less<>> m_loaded;
};

} // namespace vexo::graphics
