#include "DemoLibraryWriter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include <fcntl.h>
#include <unistd.h>

#include "ArtworkPainter.h"
#include "DemoSongTagger.h"
#include "SongSynthesizer.h"
#include "WaveFile.h"
#include "platform/base/WriteAll.h"

namespace vexo::library {
namespace {

namespace fs = std::filesystem;

bool fail(std::string* error, std::string message) {
    if (error != nullptr)
        *error = std::move(message);
    return false;
}

// Writes `bytes` to `path` whole or not at all; the reason in `error`.
bool writeFile(const fs::path& path, std::span<const std::uint8_t> bytes, std::string& error) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    if (auto written = writeAll(fd, bytes); !written) {
        error = written.error().message();
        ::close(fd);
        return false;
    }
    if (::close(fd) != 0) {
        error = std::strerror(errno);
        return false;
    }
    return true;
}

bool replaceWith(const fs::path& temporary, const fs::path& path, std::string& error) {
    std::error_code code;
    fs::rename(temporary, path, code);
    if (code) {
        error = code.message();
        fs::remove(temporary, code);
        return false;
    }
    return true;
}

// A clear reason why `folder` may not be written, or nothing when it may.
std::optional<std::string> checkFolder(const fs::path& folder) {
    std::error_code code;
    const auto status = fs::status(folder, code);
    if (status.type() == fs::file_type::not_found) {
        fs::create_directories(folder, code);
        if (code)
            return "cannot make the folder " + folder.string() + ": " + code.message();
        return std::nullopt;
    }
    if (code)
        return folder.string() + ": " + code.message();
    if (!fs::is_directory(status))
        return folder.string() + " exists and is not a folder";
    if (fs::exists(folder / DemoLibraryWriter::kMarkerFileName, code))
        return std::nullopt;
    const bool empty = fs::is_empty(folder, code);
    if (code)
        return folder.string() + ": " + code.message();
    if (!empty)
        return folder.string() + " is not empty and was not made by the demo command (it has no " +
               DemoLibraryWriter::kMarkerFileName + " file); name a new or empty folder";
    return std::nullopt;
}

std::string playlistText(const DemoPlaylist& playlist, const std::vector<DemoLibraryWriter::WrittenSong>& songs) {
    std::string text = "#EXTM3U\n#PLAYLIST:" + playlist.name + "\n";
    const std::string prefix = std::string("../") + DemoCatalogue::kSongsFolder + "/";
    for (const std::size_t index : playlist.songs) {
        const auto& written = songs.at(index);
        text += "#EXTINF:" + std::to_string(static_cast<long>(written.seconds)) + "," + written.song.artist + " - " +
                written.song.title + "\n" + prefix + written.song.fileName + "\n";
    }
    for (const auto& missing : playlist.missingFiles)
        text += "#EXTINF:-1," + fs::path(missing).stem().string() + "\n" + prefix + missing + "\n";
    return text;
}

} // namespace

std::pair<int, int> DemoLibraryWriter::artworkSize(ArtworkShape shape) {
    switch (shape) {
    case ArtworkShape::None:
        return {0, 0};
    case ArtworkShape::Square:
        return {600, 600};
    case ArtworkShape::Wide:
        return {960, 540};
    case ArtworkShape::Tall:
        return {480, 800};
    case ArtworkShape::Tiny:
        return {12, 12};
    case ArtworkShape::Large:
        return {1500, 1500};
    case ArtworkShape::Banner:
        return {1200, 240};
    }
    return {0, 0};
}

std::optional<DemoLibraryWriter::Summary> DemoLibraryWriter::write(const fs::path& folder,
                                                                   const ProgressCallback& progress,
                                                                   const std::function<bool()>& isCancelled,
                                                                   std::string* error) {
    if (const auto problem = checkFolder(folder)) {
        fail(error, *problem);
        return std::nullopt;
    }
    std::string reason;
    const std::string marker = "This folder was made by \"vexo-library demo\", which may write it again.\n";
    if (!writeFile(folder / kMarkerFileName,
                   std::span(reinterpret_cast<const std::uint8_t*>(marker.data()), marker.size()), reason)) {
        fail(error, "cannot write in " + folder.string() + ": " + reason);
        return std::nullopt;
    }
    const fs::path songsFolder = folder / DemoCatalogue::kSongsFolder;
    const fs::path playlistsFolder = folder / DemoCatalogue::kPlaylistsFolder;
    for (const auto& sub : {songsFolder, playlistsFolder}) {
        std::error_code code;
        fs::create_directories(sub, code);
        if (code) {
            fail(error, "cannot make the folder " + sub.string() + ": " + code.message());
            return std::nullopt;
        }
    }

    Summary summary;
    summary.folder = folder;
    const auto songs = DemoCatalogue::songs();
    const auto playlists = DemoCatalogue::playlists(songs);
    for (std::size_t i = 0; i < songs.size(); ++i) {
        if (isCancelled && isCancelled()) {
            fail(error, "interrupted; the " + std::to_string(i) + " songs written so far are kept");
            return std::nullopt;
        }
        const DemoSong& song = songs[i];
        const auto samples =
            SongSynthesizer::render({song.beatsPerMinute, song.keyRoot, song.minor, song.seconds, song.seed});
        const auto bytes = WaveFile::encode(samples, SongSynthesizer::kSampleRate);
        const auto [width, height] = artworkSize(song.artwork);
        std::optional<std::vector<std::uint8_t>> artwork;
        if (width > 0)
            artwork = ArtworkPainter::paint(width, height, song.seed);

        const fs::path path = songsFolder / song.fileName;
        const fs::path temporary = songsFolder / ("." + song.fileName + ".partial");
        if (!writeFile(temporary, bytes, reason) ||
            !DemoSongTagger::tag(temporary, song, static_cast<int>(i + 1), artwork, reason) ||
            !replaceWith(temporary, path, reason)) {
            std::error_code ignored;
            fs::remove(temporary, ignored);
            fail(error, "cannot write " + path.string() + ": " + reason);
            return std::nullopt;
        }
        std::error_code code;
        summary.bytes += fs::file_size(path, code);
        summary.songs.push_back({song, path, static_cast<double>(samples.size()) / SongSynthesizer::kSampleRate,
                                 artwork ? width : 0, artwork ? height : 0});
        if (progress)
            progress({Progress::Phase::Songs, i + 1, songs.size()});
    }
    for (std::size_t i = 0; i < playlists.size(); ++i) {
        const DemoPlaylist& playlist = playlists[i];
        const std::string text = playlistText(playlist, summary.songs);
        const fs::path path = playlistsFolder / playlist.fileName;
        const fs::path temporary = playlistsFolder / ("." + playlist.fileName + ".partial");
        if (!writeFile(temporary, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), reason) ||
            !replaceWith(temporary, path, reason)) {
            std::error_code ignored;
            fs::remove(temporary, ignored);
            fail(error, "cannot write " + path.string() + ": " + reason);
            return std::nullopt;
        }
        summary.bytes += text.size();
        summary.playlists.push_back({playlist, path});
        if (progress)
            progress({Progress::Phase::Playlists, i + 1, playlists.size()});
    }
    return summary;
}

} // namespace vexo::library
