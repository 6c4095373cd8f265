#include "DemoCatalogue.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>

namespace vexo::library {
namespace {

enum class KeyStyle { Untagged, Usual, Camelot, Long };

struct Row {
    const char* title;
    int artist;
    const char* album;
    int beatsPerMinute;
    bool tempoTagged;
    int keyRoot;
    bool minor;
    KeyStyle keyStyle;
    double seconds;
    ArtworkShape artwork;
};

constexpr std::array<const char*, 10> kArtists = {
    "Nova Kinetics",        // 0
    "Zoë & the Ångströms",  // 1
    "DJ Ñandú",             // 2
    "坂本 ルナ",            // 3
    "Les Étoiles Filantes", // 4
    "Midnight Ferris",      // 5
    "Øresund Drift",        // 6
    "Kōji Tanaka",          // 7
    "MC Moon 🌙",            // 8
    "The Paper Lanterns",   // 9
};

constexpr bool m = true;  // minor
constexpr bool M = false; // major
using enum ArtworkShape;
using enum KeyStyle;

constexpr std::array<Row, 40> kRows = {{
    {"Morning Circuit", 0, "First Light", 122, true, 9, m, Usual, 32, Square},
    {"Café Déjà Vu", 4, "Rive Gauche", 118, true, 2, m, Long, 28, Wide},
    {"東京ナイト", 3, "ネオン", 128, true, 4, m, Usual, 30, Square},
    {"Zürich Tram", 6, "Nordic Lines", 124, false, 7, M, Usual, 26, Tall},
    {"Ångström Waves", 1, "Small Things", 100, true, 0, M, Camelot, 35, Large},
    {"🎧 Headphones On", 8, "Night Shift", 140, true, 5, m, Usual, 24, Tiny},
    {"Niño del Sol", 2, "Pampa", 110, true, 7, m, Untagged, 38, ArtworkShape::None},
    {"夜の街", 3, "ネオン", 96, true, 11, m, Usual, 33, Banner},
    {"Crème Brûlée", 4, "Rive Gauche", 90, false, 5, M, Untagged, 22, Square},
    {"Straße 54", 0, "First Light", 126, true, 1, m, Camelot, 30, Wide},
    {"Fjørd Fever", 6, "Nordic Lines", 132, true, 2, M, Usual, 27, Square},
    {"Señorita Azul", 2, "Pampa", 104, true, 9, M, Usual, 36, Tall},
    {"Kōan", 7, "Zen Garden", 72, true, 3, m, Long, 40, Large},
    {"Ça Va Bien", 4, "Rive Gauche", 120, true, 0, m, Usual, 29, ArtworkShape::None},
    {"Half Time Heart", 5, "Loop Station", 85, true, 10, M, Usual, 31, Square},
    {"Neon Mirage", 0, "Afterglow", 124, true, 6, m, Usual, 30, Square},
    {"Moonwalk 🌕", 8, "Night Shift", 150, false, 8, m, Usual, 23, Wide},
    {"Über Drive", 1, "Small Things", 174, true, 4, m, Camelot, 25, Tiny},
    {"Sakura Loop 桜", 7, "Zen Garden", 88, true, 7, M, Usual, 34, Tall},
    {"Deep Blue Hour", 5, "Loop Station", 118, true, 9, m, Untagged, 37, Square},
    {"Piña Colada Dub", 2, "Pampa", 76, true, 2, m, Usual, 39, ArtworkShape::None},
    {"Göteborg Rain", 6, "Nordic Lines", 122, true, 11, M, Usual, 28, Large},
    {"Sunday Stroll", 9, "Slow Hours", 94, false, 5, M, Untagged, 32, Square},
    {"Voilà", 4, "Rive Gauche", 126, true, 7, m, Long, 30, Banner},
    {"Backspin", 5, "Loop Station", 128, true, 0, m, Usual, 26, Wide},
    {"Hanami 花見", 3, "ネオン", 112, true, 4, M, Usual, 33, Square},
    {"Pixel Rain", 0, "Afterglow", 130, true, 1, M, Camelot, 21, ArtworkShape::None},
    {"Aurora Borealis", 6, "Nordic Lines", 80, true, 9, m, Usual, 40, Tall},
    {"Lanterns", 9, "Slow Hours", 98, true, 10, m, Usual, 35, Square},
    {"Über Bass", 8, "Night Shift", 170, true, 6, m, Usual, 24, Large},
    {"Résumé", 1, "Small Things", 116, false, 2, M, Usual, 30, Tiny},
    {"Rooftop Garden", 9, "Slow Hours", 102, true, 3, M, Untagged, 27, ArtworkShape::None},
    {"Ōsaka Express", 7, "Zen Garden", 136, true, 11, m, Usual, 29, Wide},
    {"Late Checkout", 5, "Loop Station", 121, true, 8, M, Usual, 31, Square},
    {"El Último Tren", 2, "Pampa", 125, true, 4, m, Usual, 36, Square},
    {"Interlude", 0, "Afterglow", 70, false, 0, M, Untagged, 20, ArtworkShape::None},
    {"Mañana", 4, "Rive Gauche", 108, true, 5, m, Camelot, 33, Tall},
    {"Glühwürmchen", 1, "Small Things", 127, true, 9, M, Usual, 30, Square},
    {"Last Light", 9, "Slow Hours", 92, true, 7, m, Usual, 38, Banner},
    {"Encore", 0, "First Light", 124, true, 9, m, Usual, 25, Large},
}};

// The Camelot wheel's notation that DJ software writes: 1A to 12A minor, 1B to 12B major,
// neighbours a fifth apart.
std::string camelot(int root, bool minor) {
    const int fifths = root * 7 % 12; // C 0, G 1, D 2, ...
    const int number = (fifths + (minor ? 4 : 7)) % 12 + 1;
    return std::to_string(number) + (minor ? "A" : "B");
}

std::string keyTag(const Row& row) {
    static constexpr std::array<const char*, 12> kLongNames = {"C",  "C#", "D",  "Eb", "E",  "F",
                                                               "F#", "G",  "Ab", "A",  "Bb", "B"};
    switch (row.keyStyle) {
    case KeyStyle::Untagged:
        return {};
    case KeyStyle::Usual:
        return DemoCatalogue::keyName(row.keyRoot, row.minor);
    case KeyStyle::Camelot:
        return camelot(row.keyRoot, row.minor);
    case KeyStyle::Long:
        return std::string(kLongNames[static_cast<std::size_t>(row.keyRoot)]) + (row.minor ? " minor" : " major");
    }
    return {};
}

// Characters that file systems or playlist readers treat specially become "-".
std::string fileSafe(std::string text) {
    for (char& c : text) {
        if (c == '/' || c == '\\' || c == ':' || c == '*' || c == '?' || c == '"' || c == '<' || c == '>' || c == '|')
            c = '-';
    }
    return text;
}

} // namespace

std::string DemoCatalogue::keyName(int root, bool minor) {
    static constexpr std::array<const char*, 12> kNames = {"C",  "C#", "D",  "Eb", "E",  "F",
                                                           "F#", "G",  "Ab", "A",  "Bb", "B"};
    return std::string(kNames[static_cast<std::size_t>(((root % 12) + 12) % 12)]) + (minor ? "m" : "");
}

std::vector<DemoSong> DemoCatalogue::songs() {
    std::vector<DemoSong> songs;
    songs.reserve(kRows.size());
    std::uint32_t seed = 0x56584D4C; // fixed: every run writes the same bytes
    for (std::size_t i = 0; i < kRows.size(); ++i) {
        const Row& row = kRows[i];
        seed = seed * 1664525u + 1013904223u;
        char number[24];
        std::snprintf(number, sizeof number, "%02zu", i + 1);
        songs.push_back({row.title, kArtists[static_cast<std::size_t>(row.artist)], row.album, row.beatsPerMinute,
                         row.tempoTagged, row.keyRoot, row.minor, keyTag(row), row.seconds, row.artwork,
                         std::string(number) + " " + fileSafe(row.title) + ".wav", seed});
    }
    return songs;
}

std::vector<DemoPlaylist> DemoCatalogue::playlists(const std::vector<DemoSong>& songs) {
    std::vector<std::size_t> all(songs.size());
    std::iota(all.begin(), all.end(), 0);
    auto where = [&](auto predicate) {
        std::vector<std::size_t> chosen;
        std::copy_if(all.begin(), all.end(), std::back_inserter(chosen),
                     [&](std::size_t i) { return predicate(songs[i]); });
        return chosen;
    };
    auto byTempo = all;
    std::stable_sort(byTempo.begin(), byTempo.end(),
                     [&](std::size_t a, std::size_t b) { return songs[a].beatsPerMinute < songs[b].beatsPerMinute; });
    const std::vector<std::size_t> warmUp(byTempo.begin(), byTempo.begin() + std::min<std::size_t>(23, byTempo.size()));
    auto reversed = all;
    std::reverse(reversed.begin(), reversed.end());

    std::vector<DemoPlaylist> playlists = {
        {"Warm-up", "", warmUp, {}},
        {"Top 10", "", {2, 0, 15, 24, 9, 33, 10, 34, 39, 5}, {}},
        {"Empty Crate", "", {}, {}},
        {"Lost and Found", "", {12, 27, 20}, {"99 Never Recorded.wav"}},
        {"All Songs", "", all, {}},
        {"Reverse Order", "", reversed, {}},
        {"Peak Time 125+", "", where([](const DemoSong& s) { return s.beatsPerMinute >= 125; }), {}},
        {"Chill Under 100", "", where([](const DemoSong& s) { return s.beatsPerMinute < 100; }), {}},
        {"House 118–128",
         "",
         where([](const DemoSong& s) { return s.beatsPerMinute >= 118 && s.beatsPerMinute <= 128; }),
         {}},
        {"Drum & Bass", "", where([](const DemoSong& s) { return s.beatsPerMinute >= 160; }), {}},
        {"Minor Moods", "", where([](const DemoSong& s) { return s.minor; }), {}},
        {"Major Sunshine ☀️", "", where([](const DemoSong& s) { return !s.minor; }), {}},
        {"Key of A Minor", "", where([](const DemoSong& s) { return s.minor && s.keyRoot == 9; }), {}},
        {"No Tempo Tag", "", where([](const DemoSong& s) { return !s.tempoTagged; }), {}},
        {"No Key Tag", "", where([](const DemoSong& s) { return s.keyTag.empty(); }), {}},
        {"No Artwork", "", where([](const DemoSong& s) { return s.artwork == ArtworkShape::None; }), {}},
        {"Odd Shapes",
         "",
         where([](const DemoSong& s) {
             return s.artwork == ArtworkShape::Wide || s.artwork == ArtworkShape::Tall ||
                    s.artwork == ArtworkShape::Tiny || s.artwork == ArtworkShape::Banner;
         }),
         {}},
        {"Short Songs", "", where([](const DemoSong& s) { return s.seconds < 26; }), {}},
        {"Unicode ✨ Títulos",
         "",
         where([](const DemoSong& s) {
             return std::any_of(s.title.begin(), s.title.end(),
                                [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
         }),
         {}},
        {"Single", "", {7}, {}},
        {"Twice the Fun", "", {0, 0, 1, 1}, {}},
    };
    for (const char* artist : kArtists) {
        playlists.push_back({std::string(artist) + " Essentials",
                             "",
                             where([&](const DemoSong& s) { return s.artist == artist; }),
                             {}});
    }
    for (auto& playlist : playlists)
        playlist.fileName = fileSafe(playlist.name) + ".m3u8";
    return playlists;
}

} // namespace vexo::library
