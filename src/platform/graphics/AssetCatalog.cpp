#include "platform/graphics/AssetCatalog.h"

#include <fstream>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/install/InstalledData.h"
#include "platform/log/Log.h"

#ifndef VEXO_ASSET_DIR
#error "VEXO_ASSET_DIR must name the build tree's asset directory"
#endif

namespace vexo::graphics {

namespace {

constexpr std::string_view kComponent = "graphics";

// Larger than any asset we draw by far; a bigger file is not one of ours.
constexpr std::uintmax_t kMaxAssetBytes = 8u << 20;

// The base name of `name` without ".png", or nothing when it could reach outside the
// directory or name something other than a plain file of ours.
std::optional<std::string> baseName(std::string_view name) {
    constexpr std::string_view kExtension = ".png";
    if (name.size() > kExtension.size() && name.ends_with(kExtension))
        name.remove_suffix(kExtension.size());
    if (name.empty() || name.size() > 200 || name.front() == '.' ||
        name.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos)
        return std::nullopt;
    return std::string(name);
}

std::mutex g_configuredMutex;
std::optional<std::filesystem::path> g_configured;

} // namespace

AssetCatalog::AssetCatalog(std::filesystem::path directory)
    : m_directory(std::move(directory)) {}

void AssetCatalog::setConfiguredDirectory(std::optional<std::filesystem::path> directory) {
    std::lock_guard lock(g_configuredMutex);
    g_configured = directory && !directory->empty() ? std::move(directory) : std::nullopt;
}

std::filesystem::path AssetCatalog::defaultDirectory() {
    {
        std::lock_guard lock(g_configuredMutex);
        if (g_configured)
            return *g_configured;
    }
    if (std::optional<std::filesystem::path> installed = install::InstalledData::directory("assets"))
        return *installed;
    return VEXO_ASSET_DIR;
}

AssetCatalog& AssetCatalog::shared() {
    static AssetCatalog catalog(defaultDirectory());
    return catalog;
}

std::optional<std::filesystem::path> AssetCatalog::pathForImage(std::string_view name) const {
    std::optional<std::string> base = baseName(name);
    if (!base)
        return std::nullopt;
    std::filesystem::path path = m_directory / (*base + ".png");
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return std::nullopt;
    return path;
}

std::optional<std::vector<std::uint8_t>> AssetCatalog::imageNamed(std::string_view name) const {
    std::optional<std::string> base = baseName(name);
    if (!base) {
        log::debug(kComponent, "no asset for malformed name");
        return std::nullopt;
    }
    {
        std::lock_guard lock(m_mutex);
        if (auto found = m_loaded.find(*base); found != m_loaded.end())
            return found->second;
    }
    std::optional<std::filesystem::path> path = pathForImage(*base);
    std::error_code error;
    std::uintmax_t size = path ? std::filesystem::file_size(*path, error) : 0;
    if (!path || error || size > kMaxAssetBytes) {
        log::debug(kComponent, "no asset named " + *base + " in " + m_directory.string());
        return std::nullopt;
    }
    std::ifstream file(*path, std::ios::binary);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    if (!file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size))) {
        log::debug(kComponent, "asset " + path->string() + " could not be read");
        return std::nullopt;
    }
    std::lock_guard lock(m_mutex);
    m_loaded.emplace(*base, bytes);
    return bytes;
}

const std::vector<std::string>& AssetCatalog::allNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list = {
            "turntable-play",
            "turntable-play-active",
            "turntable-pause",
            "turntable-pause-active",
            "turntable-prev",
            "turntable-prev-active",
            "turntable-next",
            "turntable-next-active",
            "turntable-button-center",
            "turntable-button-center-active",
            "turntable-button-seg2-left",
            "turntable-button-seg2-left-active",
            "turntable-button-seg2-right",
            "turntable-button-seg2-right-active",
            "turntable-artwork-vexo",
            "mixer-turntable-artwork-vexo",
            "default-artwork",
            "automix",
            "library-playlist",
        };
        for (int i = 0; i < 50; ++i) {
            list.push_back("tracking-" + std::to_string(i) + "-f");
            list.push_back("tracking-active-" + std::to_string(i) + "-f");
        }
        for (int i = 0; i < 5; ++i) {
            list.push_back("mixer-crossfader-manual" + std::to_string(i) + "-f");
            list.push_back("mixer-crossfader-auto" + std::to_string(i) + "-f");
        }
        for (int i = 0; i < kArtworkAnimationFrameCount; ++i) {
            list.push_back(std::string(kTurntableArtworkAnimationPrefix) + std::to_string(i));
            list.push_back(std::string(kMixerArtworkAnimationPrefix) + std::to_string(i));
        }
        return list;
    }();
    return names;
}

} // namespace vexo::graphics
