// vexo-library: build and inspect the local media library that the watch and the phone share.
//
//   vexo-library scan DIR        index a music folder (again: only changed files are read), then
//                                analyse the songs not analysed yet
//   vexo-library analyze [PATH]  analyse tempo, beat grid, key and loudness of songs not analysed
//                                yet (--force: all of them again)
//   vexo-library playlists       every playlist: identifier, name, number of items
//   vexo-library items PLAYLIST  the items of a playlist, by identifier or name, with tempo and key
//   vexo-library item ID         everything the library knows of one item
//   vexo-library demo DIR        write a demonstration music library into DIR and scan it
//
// Identifiers are shown as the link to the phone writes them: upper-case hexadecimal without
// leading zeros. They are accepted in that form (with or without 0x) or in decimal.
//
// Exit codes: 0 success, 1 failure (missing folder, no such item, unusable index, a demo folder
// that is not ours or cannot be written), 2 wrong usage, 130 a scan, analysis or demo
// interrupted (what it wrote is kept).
#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <iostream>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "AnalysisCommand.h"
#include "DemoLibraryWriter.h"
#include "TerminalProgress.h"
#include "common/ProgramSettings.h"
#include "platform/log/Log.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"

namespace {

using namespace vexo;
using media::MediaItem;
using media::MediaLibrary;
using media::MediaPlaylist;
using media::MediaType;
using media::PersistentID;

enum ExitCode { kSuccess = 0, kFailure = 1, kUsage = 2 };

struct Options {
    std::string library;
    std::string group{MediaLibrary::kDefaultApplicationGroup};
    bool quiet = false;
    bool verbose = false;
    // Analyse the songs after a scan.
    bool analyse = true;
    unsigned threads = 0;
};

int fail(const std::string& message, int code = kFailure) {
    std::cerr << "vexo-library: " << message << "\n";
    return code;
}

std::string hex(PersistentID id) {
    char text[17];
    std::snprintf(text, sizeof text, "%" PRIX64, id);
    return text;
}

// Upper-case hexadecimal (as printed, with or without 0x) or decimal; plain digits are tried
// as hexadecimal first, since that is the form this program and the link to the phone write.
std::vector<PersistentID> identifierCandidates(const std::string& text) {
    auto parse = [](std::string_view digits, int base) -> std::optional<PersistentID> {
        if (digits.empty())
            return std::nullopt;
        PersistentID value = 0;
        for (const char c : digits) {
            int digit;
            if (c >= '0' && c <= '9')
                digit = c - '0';
            else if (base == 16 && c >= 'a' && c <= 'f')
                digit = c - 'a' + 10;
            else if (base == 16 && c >= 'A' && c <= 'F')
                digit = c - 'A' + 10;
            else
                return std::nullopt;
            if (value > (UINT64_MAX - static_cast<PersistentID>(digit)) / static_cast<PersistentID>(base))
                return std::nullopt;
            value = value * static_cast<PersistentID>(base) + static_cast<PersistentID>(digit);
        }
        return value;
    };
    std::vector<PersistentID> candidates;
    std::string_view view = text;
    if (view.starts_with("0x") || view.starts_with("0X")) {
        if (const auto value = parse(view.substr(2), 16))
            candidates.push_back(*value);
        return candidates;
    }
    if (const auto value = parse(view, 16))
        candidates.push_back(*value);
    if (const auto value = parse(view, 10); value && (candidates.empty() || candidates[0] != *value))
        candidates.push_back(*value);
    return candidates;
}

std::string duration(double seconds) {
    const auto total = static_cast<long long>(std::llround(std::max(0.0, seconds)));
    char text[32];
    if (total >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", total / 60, total % 60);
    return text;
}

std::string kindName(MediaType type) {
    const std::pair<MediaType, const char*> names[] = {
        {MediaType::Music, "music"},
        {MediaType::Podcast, "podcast"},
        {MediaType::AudioBook, "audiobook"},
        {MediaType::AudioITunesU, "iTunes U audio"},
        {MediaType::Movie, "movie"},
        {MediaType::TVShow, "TV show"},
        {MediaType::VideoPodcast, "video podcast"},
        {MediaType::MusicVideo, "music video"},
        {MediaType::VideoITunesU, "iTunes U video"},
        {MediaType::HomeVideo, "home video"},
    };
    std::string text;
    for (const auto& [kind, name] : names) {
        if ((type & kind) == kind)
            text += (text.empty() ? "" : ", ") + std::string(name);
    }
    return text.empty() ? "unknown (" + std::to_string(static_cast<std::uint64_t>(type)) + ")" : text;
}

// Terminal columns of UTF-8 text: two for East Asian wide characters and emoji, none for
// combining marks and variation selectors, one for the rest.
std::size_t columns(const std::string& text) {
    std::size_t width = 0;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        char32_t code = length == 1 ? lead : lead & (0x3F >> (length - 1));
        for (std::size_t k = 1; k < length && i + k < text.size(); ++k)
            code = (code << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        i += length;
        if ((code >= 0x300 && code <= 0x36F) || (code >= 0xFE00 && code <= 0xFE0F) || code == 0x200D)
            continue;
        const bool wide = (code >= 0x1100 && code <= 0x115F) || (code >= 0x2E80 && code <= 0xA4CF) ||
                          (code >= 0xAC00 && code <= 0xD7A3) || (code >= 0xF900 && code <= 0xFAFF) ||
                          (code >= 0xFE30 && code <= 0xFE4F) || (code >= 0xFF00 && code <= 0xFF60) ||
                          (code >= 0xFFE0 && code <= 0xFFE6) || (code >= 0x2600 && code <= 0x27BF) ||
                          (code >= 0x1F300 && code <= 0x1FAFF) || (code >= 0x20000 && code <= 0x3FFFD);
        width += wide ? 2 : 1;
    }
    return width;
}

std::string padded(const std::string& text, std::size_t width) {
    const std::size_t used = columns(text);
    return used >= width ? text : text + std::string(width - used, ' ');
}

std::string rightAligned(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

std::shared_ptr<MediaLibrary> openExisting(const std::filesystem::path& path, int& code) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        code = fail("no media library at " + path.string() + "; make one with: vexo-library scan DIR");
        return nullptr;
    }
    auto library = MediaLibrary::open(path);
    if (!library)
        code = fail(library.error().message());
    return std::move(library).valueOr(nullptr);
}

void showProgress(library::TerminalProgress& line, const media::LibraryScanner::Progress& progress) {
    const std::size_t done = progress.filesDone;
    const std::size_t total = progress.filesTotal;
    const bool final = total > 0 && done == total;
    if (progress.phase != media::LibraryScanner::Progress::Phase::Reading) {
        line.redraw("listing files: " + std::to_string(done) + " found", final);
        return;
    }
    if (total > 0)
        line.printAtTenth(done, total, "read " + std::to_string(done) + " of " + std::to_string(total) + " files");
    const auto percent = total == 0 ? std::size_t{100} : done * 100 / total;
    line.redraw("reading files: " + std::to_string(done) + "/" + std::to_string(total) + " (" +
                    std::to_string(percent) + "%)",
                final);
}

// Set by the first SIGINT or SIGTERM: the scan stops after the file it is reading and keeps
// what it wrote. A second signal ends the program at once.
volatile std::sig_atomic_t g_interrupted = 0;
// The same for the analysis's worker threads (a lock-free atomic may be set in a handler).
std::atomic<bool> g_analysisCancelled{false};

extern "C" void interrupt(int signal) {
    g_interrupted = 1;
    g_analysisCancelled = true;
    std::signal(signal, SIG_DFL);
}

int scan(const Options& options, const std::filesystem::path& indexPath, const std::string& folder) {
    media::LibraryScanner::Options scanOptions;
    scanOptions.applicationGroup = options.group;
    scanOptions.isCancelled = [] { return g_interrupted != 0; };
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    media::LibraryScanner scanner(indexPath, scanOptions);
    library::TerminalProgress line(library::TerminalProgress::styleFor(options.quiet));
    const auto summary =
        scanner.scan(folder, [&](const media::LibraryScanner::Progress& progress) { showProgress(line, progress); });
    line.clear();
    if (!summary)
        return fail(summary.error().message(),
                    summary.error().kind() == ErrorKind::Cancelled ? 128 + SIGINT : kFailure);

    for (const auto& problem : summary->problems)
        std::cerr << "vexo-library: skipped " << problem.path.string() << ": " << problem.reason << "\n";
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.2f", summary->seconds);
    std::cout << "scanned " << summary->folder.string() << " in " << seconds << " s: " << summary->audioFiles
              << " audio files, " << summary->playlistFiles << " playlist files\n"
              << "items: " << summary->itemsAdded << " added, " << summary->itemsUpdated << " updated, "
              << summary->itemsGone << " gone, " << summary->itemsUnchanged << " unchanged\n"
              << "playlists: " << summary->playlistsAdded << " added, " << summary->playlistsUpdated << " updated, "
              << summary->playlistsGone << " gone\n";
    if (!summary->problems.empty())
        std::cout << "skipped: " << summary->problems.size() << " (see above)\n";
    std::cout << "index: " << indexPath.string() << "\n";
    if (!options.analyse)
        return kSuccess;
    analysis::LibraryAnalyzer::Options analysisOptions;
    analysisOptions.only = {summary->folder};
    analysisOptions.threads = options.threads;
    analysisOptions.cancel = &g_analysisCancelled;
    std::cout.flush();
    return library::runAnalysis(indexPath, analysisOptions, options.quiet);
}

int analyze(const Options& options, const std::filesystem::path& indexPath, const std::vector<std::string>& paths,
            bool force) {
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    analysis::LibraryAnalyzer::Options analysisOptions;
    analysisOptions.force = force;
    analysisOptions.threads = options.threads;
    analysisOptions.cancel = &g_analysisCancelled;
    for (const auto& path : paths)
        analysisOptions.only.emplace_back(path);
    int code = kSuccess;
    if (!openExisting(indexPath, code))
        return code;
    return library::runAnalysis(indexPath, analysisOptions, options.quiet);
}

// What the demo command made, as a table of songs and one of playlists.
void printDemo(const library::DemoLibraryWriter::Summary& made) {
    using library::DemoLibraryWriter;
    std::size_t tempo = 0, key = 0, artwork = 0, titleWidth = 5, artistWidth = 6;
    for (const auto& written : made.songs) {
        tempo += written.song.tempoTagged ? 1 : 0;
        key += written.song.keyTag.empty() ? 0 : 1;
        artwork += written.artworkWidth > 0 ? 1 : 0;
        titleWidth = std::max(titleWidth, columns(written.song.title));
        artistWidth = std::max(artistWidth, columns(written.song.artist));
    }
    char megabytes[32];
    std::snprintf(megabytes, sizeof megabytes, "%.1f", static_cast<double>(made.bytes) / 1e6);
    std::cout << "made a demonstration library in " << made.folder.string() << ": " << made.songs.size() << " songs, "
              << made.playlists.size() << " playlists, " << megabytes << " MB\n"
              << "songs: " << tempo << " with a tempo tag, " << key << " with a key tag, " << artwork
              << " with artwork\n\n";
    std::cout << padded("TITLE", titleWidth) << "  " << padded("ARTIST", artistWidth)
              << "  DURATION  BPM  KEY       ARTWORK\n";
    for (const auto& written : made.songs) {
        const std::string bpm = written.song.tempoTagged ? std::to_string(written.song.beatsPerMinute) : "-";
        const std::string key = written.song.keyTag.empty() ? "-" : written.song.keyTag;
        const std::string picture = written.artworkWidth > 0 ? std::to_string(written.artworkWidth) + "x" +
                                                                   std::to_string(written.artworkHeight)
                                                             : "-";
        std::cout << padded(written.song.title, titleWidth) << "  " << padded(written.song.artist, artistWidth) << "  "
                  << rightAligned(duration(written.seconds), 8) << "  " << rightAligned(bpm, 3) << "  "
                  << padded(key, 8) << "  " << picture << "\n";
    }
    std::size_t nameWidth = 8;
    for (const auto& written : made.playlists)
        nameWidth = std::max(nameWidth, columns(written.playlist.name));
    std::cout << "\n" << padded("PLAYLIST", nameWidth) << "  SONGS\n";
    for (const auto& written : made.playlists) {
        const auto& playlist = written.playlist;
        std::cout << padded(playlist.name, nameWidth) << "  " << rightAligned(std::to_string(playlist.songs.size()), 5);
        if (!playlist.missingFiles.empty())
            std::cout << "  (and " << playlist.missingFiles.size() << " missing file"
                      << (playlist.missingFiles.size() == 1 ? ")" : "s)");
        std::cout << "\n";
    }
    std::cout << "\n";
}

int demo(const Options& options, const std::filesystem::path& indexPath, const std::string& folder) {
    using library::DemoLibraryWriter;
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    const bool tty = ::isatty(STDERR_FILENO) == 1;
    // On a terminal a line counts up in place; elsewhere (a log, a pipe) a line per song, so
    // that whoever reads it sees the work go on, and one for the playlists.
    auto progress = [&](const DemoLibraryWriter::Progress& step) {
        if (options.quiet)
            return;
        const bool songs = step.phase == DemoLibraryWriter::Progress::Phase::Songs;
        if (tty) {
            std::fprintf(stderr, "\r\033[Kwriting %s: %zu/%zu", songs ? "songs" : "playlists", step.done, step.total);
            if (step.done == step.total)
                std::fputc('\n', stderr);
        } else if (songs) {
            std::fprintf(stderr, "wrote song %zu of %zu into %s\n", step.done, step.total, folder.c_str());
        } else if (step.done == step.total) {
            std::fprintf(stderr, "wrote %zu playlists into %s\n", step.total, folder.c_str());
        }
        std::fflush(stderr);
    };
    std::string error;
    const auto made = DemoLibraryWriter::write(
        folder, progress, [] { return g_interrupted != 0; }, &error);
    if (tty && !options.quiet)
        std::fputs("\r\033[K", stderr);
    if (!made)
        return fail(error, g_interrupted ? 128 + SIGINT : kFailure);
    if (!options.quiet)
        std::fprintf(stderr, "scanning %s into %s\n", folder.c_str(), indexPath.c_str());
    printDemo(*made);
    return scan(options, indexPath, folder);
}

int playlists(const std::filesystem::path& indexPath) {
    int code = kSuccess;
    const auto library = openExisting(indexPath, code);
    if (!library)
        return code;
    const auto playlists = library->playlists(MediaType::Any, MediaLibrary::EmptyPlaylists::Include);
    if (playlists.empty()) {
        std::cerr << "vexo-library: no playlists in " << indexPath.string() << "\n";
        return kSuccess;
    }
    std::size_t nameWidth = 4;
    for (const auto& playlist : playlists)
        nameWidth = std::max(nameWidth, columns(playlist.name()));
    std::cout << padded("ID", 16) << "  " << padded("NAME", nameWidth) << "  ITEMS\n";
    for (const auto& playlist : playlists)
        std::cout << padded(hex(playlist.persistentID()), 16) << "  " << padded(playlist.name(), nameWidth) << "  "
                  << playlist.count() << "\n";
    return kSuccess;
}

std::string fixed(double value, int decimals) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

// "123.50  8A  -9.1 LUFS", "-" for a song not analysed, the reason for one without values.
std::string analysedSummary(const MediaItem& item) {
    const auto& analysis = item.analysis();
    if (!analysis)
        return "-";
    if (!analysis->beatsPerMinute && !analysis->key && !analysis->loudnessLUFS)
        return "(" + analysis->failure.value_or("nothing found") + ")";
    return rightAligned(analysis->beatsPerMinute ? fixed(*analysis->beatsPerMinute, 2) : "-", 6) + "  " +
           padded(analysis->key.value_or("-"), 3) + "  " +
           rightAligned(analysis->loudnessLUFS ? fixed(*analysis->loudnessLUFS, 1) : "-", 5) + " LUFS";
}

int items(const std::filesystem::path& indexPath, const std::string& which) {
    int code = kSuccess;
    const auto library = openExisting(indexPath, code);
    if (!library)
        return code;
    const auto playlists = library->playlists(MediaType::Any, MediaLibrary::EmptyPlaylists::Include);
    const MediaPlaylist* chosen = nullptr;
    for (const PersistentID id : identifierCandidates(which)) {
        for (const auto& playlist : playlists) {
            if (!chosen && playlist.persistentID() == id)
                chosen = &playlist;
        }
    }
    if (chosen == nullptr) {
        std::vector<const MediaPlaylist*> byName;
        for (const auto& playlist : playlists) {
            if (playlist.name() == which)
                byName.push_back(&playlist);
        }
        if (byName.size() > 1) {
            std::string ids;
            for (const auto* playlist : byName)
                ids += " " + hex(playlist->persistentID());
            return fail("several playlists are named \"" + which + "\"; choose one by identifier:" + ids);
        }
        if (byName.empty())
            return fail("no playlist \"" + which + "\" (see: vexo-library playlists)");
        chosen = byName.front();
    }

    std::cout << chosen->name() << " (" << hex(chosen->persistentID()) << "), " << chosen->count()
              << (chosen->count() == 1 ? " item\n" : " items\n");
    std::size_t titleWidth = 5, artistWidth = 6, keyWidth = 3;
    for (const auto& item : chosen->items()) {
        titleWidth = std::max(titleWidth, columns(item.title()));
        artistWidth = std::max(artistWidth, columns(item.artist()));
        keyWidth = std::max(keyWidth, columns(item.initialKey()));
    }
    titleWidth = std::min<std::size_t>(titleWidth, 40);
    artistWidth = std::min<std::size_t>(artistWidth, 30);
    // An absent tempo or key shows as "-", so that every line has all its columns.
    // BPM and KEY are the tags; ANALYSED the analyser's tempo, key and loudness.
    std::cout << padded("ID", 16) << "  " << padded("TITLE", titleWidth) << "  " << padded("ARTIST", artistWidth)
              << "  DURATION  BPM  " << padded("KEY", keyWidth) << "  ANALYSED\n";
    for (const auto& item : chosen->items()) {
        const std::string bpm = item.beatsPerMinute() > 0 ? std::to_string(item.beatsPerMinute()) : "-";
        const std::string key = item.initialKey().empty() ? "-" : item.initialKey();
        std::cout << padded(hex(item.persistentID()), 16) << "  " << padded(item.title(), titleWidth) << "  "
                  << padded(item.artist(), artistWidth) << "  " << rightAligned(duration(item.playbackDuration()), 8)
                  << "  " << rightAligned(bpm, 3) << "  " << padded(key, keyWidth) << "  " << analysedSummary(item)
                  << (item.assetURL() ? "" : "  (missing)") << "\n";
    }
    return kSuccess;
}

// The analyser's values beside the tags', and the ones the phone plays by.
std::string analysisLines(const MediaItem& item) {
    std::string lines;
    const auto& analysis = item.analysis();
    if (!analysis)
        return "analysis:    none yet (vexo-library analyze)\n";
    lines += "analysed:    version " + std::to_string(analysis->version) +
             (analysis->failure ? " (in part: " + *analysis->failure + ")" : "") + "\n";
    lines += "  bpm:       " + (analysis->beatsPerMinute ? fixed(*analysis->beatsPerMinute, 2) : "none") + "\n";
    lines +=
        "  beat one:  " + (analysis->firstBeatSeconds ? fixed(*analysis->firstBeatSeconds, 3) + " s" : "none") + "\n";
    lines += "  key:       " + analysis->key.value_or("none") + " (Camelot)\n";
    lines += "  loudness:  " + (analysis->loudnessLUFS ? fixed(*analysis->loudnessLUFS, 1) + " LUFS" : "none") + "\n";
    lines += "  true peak: " + (analysis->truePeakDBTP ? fixed(*analysis->truePeakDBTP, 1) + " dBTP" : "none") + "\n";
    const auto chosenBpm = item.chosenBeatsPerMinute(media::ValuePreference::Tags);
    const auto chosenKey = item.chosenKey(media::ValuePreference::Tags);
    lines += "played by:   " + (chosenBpm > 0 ? fixed(chosenBpm, 2) + " BPM" : std::string("no tempo")) + ", key " +
             (chosenKey.empty() ? "none" : chosenKey) + " (tags first; vexo-phone --prefer analysis turns it round)\n";
    return lines;
}

int item(const std::filesystem::path& indexPath, const std::string& text) {
    const auto candidates = identifierCandidates(text);
    if (candidates.empty())
        return fail("\"" + text + "\" is not an identifier (hexadecimal, or decimal)", kUsage);
    int code = kSuccess;
    const auto library = openExisting(indexPath, code);
    if (!library)
        return code;
    std::optional<MediaItem> found;
    for (const PersistentID id : candidates) {
        if (auto items = library->itemsWithPersistentID(id); !found && !items.empty())
            found = std::move(items.back());
    }
    if (!found)
        return fail("no item with identifier " + text);

    std::string inPlaylists;
    for (const auto& playlist : library->playlists(MediaType::Any)) {
        const bool contains = std::any_of(playlist.items().begin(), playlist.items().end(), [&](const MediaItem& item) {
            return item.persistentID() == found->persistentID();
        });
        if (contains)
            inPlaylists += (inPlaylists.empty() ? "" : ", ") + playlist.name();
    }
    const auto artwork = found->artworkData();
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.3f", found->playbackDuration());
    std::cout << "identifier:  " << hex(found->persistentID()) << " (" << found->persistentID() << ")\n"
              << "title:       " << found->title() << "\n"
              << "artist:      " << found->artist() << "\n"
              << "album:       " << found->albumTitle() << "\n"
              << "duration:    " << duration(found->playbackDuration()) << " (" << seconds << " s)\n"
              << "kind:        " << kindName(found->mediaType()) << "\n"
              << "bpm:         " << (found->beatsPerMinute() > 0 ? std::to_string(found->beatsPerMinute()) : "none")
              << "\n"
              << "key:         " << (found->initialKey().empty() ? "none" : found->initialKey()) << "\n"
              << analysisLines(*found) << "asset URL:   " << found->assetURL().value_or("(missing: the file has gone)")
              << "\n"
              << "artwork:     " << (artwork ? std::to_string(artwork->size()) + " bytes" : "none") << "\n"
              << "playlists:   " << (inPlaylists.empty() ? "none" : inPlaylists) << "\n";
    return kSuccess;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Build and inspect the local media library that the watch and the phone share: an index of a "
                 "music folder whose items and playlists keep their persistent identifiers across rescans."};
    app.set_version_flag("--version", std::string("vexo-library ") + VEXO_VERSION);
    app.require_subcommand(1);

    Options options;
    app.add_option("--library", options.library,
                   "index file (default: $VEXO_MEDIA_LIBRARY, else $XDG_DATA_HOME/vexo/media-library.sqlite)");
    app.add_option("-g,--group", options.group, "application group whose processes hear of changes")
        ->capture_default_str();
    app.add_flag("-v,--verbose", options.verbose, "log why things fail");

    std::string folder, playlist, identifier;
    auto* scanCommand = app.add_subcommand(
        "scan", "index a music folder; a rescan reads only changed files; then analyse the new and changed songs");
    scanCommand->add_option("DIR", folder, "the music folder")->required();
    scanCommand->add_flag("-q,--quiet", options.quiet, "no progress line");
    scanCommand->add_flag("!--no-analysis", options.analyse, "do not analyse the songs after the scan");
    scanCommand->add_option("-j,--jobs", options.threads, "analysis threads (default: one per core)");

    std::vector<std::string> analyzePaths;
    bool force = false;
    auto* analyzeCommand = app.add_subcommand(
        "analyze", "analyse tempo, beat grid, key (Camelot) and loudness of the songs not analysed yet, or changed");
    analyzeCommand->add_option("PATH", analyzePaths, "only songs that are, or lie in, these files or folders");
    analyzeCommand->add_flag("-f,--force", force, "analyse again songs analysed already");
    analyzeCommand->add_option("-j,--jobs", options.threads, "analysis threads (default: one per core)");
    analyzeCommand->add_flag("-q,--quiet", options.quiet, "no progress on standard error");

    auto* playlistsCommand = app.add_subcommand("playlists", "list every playlist: identifier, name, item count");

    auto* itemsCommand = app.add_subcommand("items", "list the items of a playlist");
    itemsCommand->add_option("PLAYLIST", playlist, "identifier (hexadecimal or decimal) or name")->required();

    auto* itemCommand = app.add_subcommand("item", "show one item");
    itemCommand->add_option("ID", identifier, "identifier (hexadecimal or decimal)")->required();

    std::string demoFolder;
    const auto demoSongs = library::DemoCatalogue::songs();
    auto* demoCommand = app.add_subcommand(
        "demo", "write a demonstration music library (" + std::to_string(demoSongs.size()) +
                    " tagged songs with artwork, " +
                    std::to_string(library::DemoCatalogue::playlists(demoSongs).size()) +
                    " playlists) into DIR, then scan it; DIR must be new, empty, or made by this command before");
    demoCommand->add_option("DIR", demoFolder, "the folder to write (made when missing)")->required();
    demoCommand->add_flag("-q,--quiet", options.quiet, "no progress on standard error");
    demoCommand->add_flag("!--no-analysis", options.analyse, "do not analyse the songs after the scan");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? kSuccess : kUsage;
    }
    apps::ProgramSettings settings = apps::ProgramSettings::fromEnvironment();
    if (!options.library.empty())
        settings.mediaLibrary = options.library;
    settings.install();
    if (options.verbose)
        log::setLevel(log::Level::Debug);
    const std::filesystem::path indexPath = MediaLibrary::defaultPath(settings.mediaLibrary, settings.userDirectories);

    if (scanCommand->parsed())
        return scan(options, indexPath, folder);
    if (analyzeCommand->parsed())
        return analyze(options, indexPath, analyzePaths, force);
    if (playlistsCommand->parsed())
        return playlists(indexPath);
    if (itemsCommand->parsed())
        return items(indexPath, playlist);
    if (itemCommand->parsed())
        return item(indexPath, identifier);
    if (demoCommand->parsed())
        return demo(options, indexPath, demoFolder);
    return kUsage;
}
