// Scanning and querying the local media library, each against a floor measured in the same
// run on the same files:
//
//   - a first scan of a generated folder of tagged files (MP3, FLAC, Ogg Vorbis, Opus, M4A and
//     WAV in turn, one in ten with a picture, three in four with tempo and key) against bare TagLib reads of those
//     files, then an unchanged rescan, whose time should stay far below the first scan's;
//   - the playlist query over many playlists and items against a bare SQLite walk of the same
//     joined rows, without building items.
//
//   build/bench/bench_media_library [--files N] [--playlists N] [--items N] [--queries N] [--dir DIR]
//
// Files live in a temporary folder under DIR (default: $TMPDIR or /tmp) and are removed
// afterwards; the page cache is warm for both the scan and its floor. Scan figures are medians
// of three first scans (each into a fresh index) and six rescans.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <sqlite3.h>
#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>
#include <unistd.h>

#include "platform/media/AudioFixture.h"
#include "platform/media/LibraryScanner.h"
#include "platform/media/MediaLibrary.h"

using namespace vexo;
using testing::AudioFixture;
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

struct Settings {
    std::size_t files = 5000;
    std::size_t playlists = 500;
    std::size_t items = 20000;
    std::size_t queries = 20;
    fs::path directory;
};

// `count` tagged files in folders of a hundred; their paths.
std::vector<fs::path> generate(const fs::path& folder, std::size_t count, double seconds) {
    using Format = AudioFixture::Format;
    constexpr Format kFormats[] = {Format::Mp3,  Format::Flac, Format::OggVorbis,
                                   Format::Opus, Format::M4a,  Format::Wav};
    std::vector<fs::path> paths;
    paths.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const Format format = kFormats[i % std::size(kFormats)];
        const fs::path directory = folder / ("artist " + std::to_string(i / 100));
        if (i % 100 == 0)
            fs::create_directories(directory);
        const fs::path path = directory / ("track " + std::to_string(i) + AudioFixture::extension(format));
        AudioFixture::Tags tags{"Track " + std::to_string(i),
                                "Artist " + std::to_string(i / 100),
                                "Album " + std::to_string(i / 10),
                                "Electronic",
                                std::nullopt,
                                std::nullopt};
        if (i % 10 == 0)
            tags.artwork = AudioFixture::pictureBytes(static_cast<int>(i));
        // Most DJ libraries tag tempo and key; a few files do not.
        if (i % 4 != 0) {
            tags.bpm = std::to_string(80 + i % 90);
            tags.initialKey = std::to_string(1 + i % 12) + (i % 2 == 0 ? "A" : "B");
        }
        if (!AudioFixture::write(path, format, seconds, tags)) {
            std::fprintf(stderr, "cannot write %s\n", path.c_str());
            std::exit(1);
        }
        paths.push_back(path);
    }
    return paths;
}

// The floor of a scan: what TagLib alone takes to read the same tags (tempo and key included)
// and lengths.
double bareTagLibReads(const std::vector<fs::path>& paths) {
    const auto start = Clock::now();
    std::size_t titles = 0;
    for (const auto& path : paths) {
        TagLib::FileRef reference(path.c_str(), true, TagLib::AudioProperties::Average);
        // Tempo and key come from the property map, as the scanner reads them.
        if (!reference.isNull() && !reference.tag()->title().isEmpty() && reference.audioProperties() != nullptr &&
            !reference.file()->properties().isEmpty())
            ++titles;
    }
    if (titles != paths.size())
        std::fprintf(stderr, "warning: TagLib read %zu of %zu files\n", titles, paths.size());
    return secondsSince(start);
}

media::LibraryScanner::Summary scanOrExit(const fs::path& index, const fs::path& folder) {
    media::LibraryScanner::Options options;
    options.applicationGroup.clear();
    const auto summary = media::LibraryScanner(index, options).scan(folder);
    if (!summary) {
        std::fprintf(stderr, "scan failed: %s\n", summary.error().message().c_str());
        std::exit(1);
    }
    return *summary;
}

// The floor of the playlist query: the same rows stepped through by bare SQLite.
double bareQuery(const fs::path& index) {
    sqlite3* database = nullptr;
    sqlite3_open_v2(index.c_str(), &database, SQLITE_OPEN_READONLY, nullptr);
    // The library's own connection settings, so that only the work above SQLite differs.
    sqlite3_exec(database, "PRAGMA cache_size = -32768; PRAGMA mmap_size = 268435456", nullptr, nullptr, nullptr);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(database,
                       "SELECT e.playlist_id, i.persistent_id, i.path, i.present, i.title, i.artist, i.album,"
                       " i.duration, i.media_type, i.has_artwork FROM playlist_entries e"
                       " JOIN items i ON i.path = e.path WHERE (i.media_type & 65535) != 0"
                       " ORDER BY e.playlist_id, e.position",
                       -1, &statement, nullptr);
    std::size_t bytes = 0;
    // One walk to fill the cache, as the library's connection has from earlier queries.
    while (sqlite3_step(statement) == SQLITE_ROW) {
    }
    sqlite3_reset(statement);
    const auto start = Clock::now();
    double sum = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        // Each column read as what it is: asking an integer for its bytes would format it.
        for (const int column : {0, 1, 3, 8, 9})
            sum += static_cast<double>(sqlite3_column_int64(statement, column));
        sum += sqlite3_column_double(statement, 7);
        for (const int column : {2, 4, 5, 6}) {
            bytes += sqlite3_column_text(statement, column) != nullptr ? 1 : 0;
            bytes += static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        }
    }
    const double seconds = secondsSince(start);
    sqlite3_finalize(statement);
    sqlite3_close(database);
    return bytes > 0 && sum != 0 ? seconds : 0;
}

void scanBenchmark(const Settings& settings, const fs::path& work) {
    std::printf("== scan: %zu tagged files\n", settings.files);
    auto start = Clock::now();
    const auto paths = generate(work / "scan", settings.files, 1.0);
    std::printf("generated in %.2f s\n", secondsSince(start));

    // Medians of a few runs: a first scan into a fresh index each time, then rescans of the last.
    constexpr int kRuns = 3;
    std::vector<double> firsts, floors, rescans;
    fs::path index;
    for (int run = 0; run < kRuns; ++run) {
        index = work / ("scan-" + std::to_string(run) + ".sqlite");
        const auto first = scanOrExit(index, work / "scan");
        if (first.itemsAdded != settings.files)
            std::fprintf(stderr, "warning: the first scan added %zu items\n", first.itemsAdded);
        firsts.push_back(first.seconds);
        floors.push_back(bareTagLibReads(paths));
    }
    for (int run = 0; run < 2 * kRuns; ++run) {
        const auto again = scanOrExit(index, work / "scan");
        if (again.itemsUnchanged != settings.files)
            std::fprintf(stderr, "warning: a rescan left %zu items unchanged\n", again.itemsUnchanged);
        rescans.push_back(again.seconds);
    }
    const double first = median(firsts), floor = median(floors), rescan = median(rescans);
    const double files = static_cast<double>(settings.files);
    std::printf("first scan:        %8.3f s  %9.0f files/s\n", first, files / first);
    std::printf("bare TagLib reads: %8.3f s  %9.0f files/s  (floor; scan/floor %.2fx)\n", floor, files / floor,
                first / floor);
    std::printf("unchanged rescan:  %8.3f s  %9.0f files/s  (rescan/first %.3f)\n", rescan, files / rescan,
                rescan / first);
}

void queryBenchmark(const Settings& settings, const fs::path& work) {
    std::printf("== playlist query: %zu playlists over %zu items\n", settings.playlists, settings.items);
    auto start = Clock::now();
    const fs::path folder = work / "query";
    const auto paths = generate(folder, settings.items, 0.1);
    // Every item in one playlist, in order: items / playlists entries each.
    const std::size_t perPlaylist =
        std::max<std::size_t>(1, settings.items / std::max<std::size_t>(1, settings.playlists));
    fs::create_directories(folder / "playlists");
    for (std::size_t p = 0; p < settings.playlists; ++p) {
        std::ofstream list(folder / "playlists" / ("list " + std::to_string(p) + ".m3u8"));
        list << "#EXTM3U\n";
        for (std::size_t i = p * perPlaylist; i < std::min(paths.size(), (p + 1) * perPlaylist); ++i)
            list << "#EXTINF:0,Track " << i << "\n" << fs::relative(paths[i], folder / "playlists").string() << "\n";
    }
    const fs::path index = work / "query.sqlite";
    const auto summary = scanOrExit(index, folder);
    std::printf("generated and scanned in %.2f s (scan %.2f s, %.0f files/s)\n", secondsSince(start), summary.seconds,
                static_cast<double>(summary.audioFiles + summary.playlistFiles) / summary.seconds);

    const auto library = media::MediaLibrary::open(index).valueOr(nullptr);
    std::vector<double> times, floors;
    std::size_t rows = 0;
    for (std::size_t round = 0; round < settings.queries; ++round) {
        start = Clock::now();
        const auto playlists = library->playlists(media::MediaType::Any);
        times.push_back(secondsSince(start));
        rows = 0;
        for (const auto& playlist : playlists)
            rows += playlist.count();
        floors.push_back(bareQuery(index));
    }
    const double query = median(times), floor = median(floors);
    std::printf("playlists(Any):    %8.2f ms per query (median of %zu; %zu playlists, %zu items)\n", query * 1e3,
                settings.queries, library->playlists(media::MediaType::Any).size(), rows);
    std::printf("bare SQLite rows:  %8.2f ms (floor; query/floor %.2fx)\n", floor * 1e3, query / floor);
}

bool parseCount(const char* text, std::size_t& value) {
    char* end = nullptr;
    const unsigned long long parsed = std::strtoull(text, &end, 10);
    if (end == text || *end != '\0' || parsed == 0)
        return false;
    value = static_cast<std::size_t>(parsed);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    Settings settings;
    const char* temporary = std::getenv("TMPDIR");
    settings.directory = temporary != nullptr && *temporary != '\0' ? temporary : "/tmp";
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const bool hasValue = i + 1 < argc;
        bool ok = hasValue;
        if (option == "--help" || option == "-h") {
            std::printf("usage: %s [--files N] [--playlists N] [--items N] [--queries N] [--dir DIR]\n", argv[0]);
            return 0;
        } else if (option == "--files" && hasValue) {
            ok = parseCount(argv[++i], settings.files);
        } else if (option == "--playlists" && hasValue) {
            ok = parseCount(argv[++i], settings.playlists);
        } else if (option == "--items" && hasValue) {
            ok = parseCount(argv[++i], settings.items);
        } else if (option == "--queries" && hasValue) {
            ok = parseCount(argv[++i], settings.queries);
        } else if (option == "--dir" && hasValue) {
            settings.directory = argv[++i];
        } else {
            ok = false;
        }
        if (!ok) {
            std::fprintf(stderr, "%s: bad argument %s (see --help)\n", argv[0], option.c_str());
            return 2;
        }
    }

    std::string pattern = (settings.directory / "vexo-media-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::fprintf(stderr, "cannot make a folder in %s: %s\n", settings.directory.c_str(), std::strerror(errno));
        return 1;
    }
    const fs::path work = pattern;
    scanBenchmark(settings, work);
    queryBenchmark(settings, work);
    std::error_code code;
    fs::remove_all(work, code);
    return 0;
}
