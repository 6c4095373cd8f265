#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "DemoCatalogue.h"

// Writes a demonstration song's tags into its WAVE file as an ID3v2.3 tag (the version most
// players read): title, artist, album, genre, track number, tempo (TBPM) and key (TKEY) when
// the song has them, and the cover as a front-cover picture.
namespace vexo::library {

class DemoSongTagger {
public:
    DemoSongTagger() = delete;

    // Tags the WAVE file at `path`. `track` is the song's number, from 1. False, with the
    // reason in `error`, when TagLib cannot open or save the file.
    [[nodiscard]] static bool tag(const std::filesystem::path& path, const DemoSong& song, int track,
                                  const std::optional<std::vector<std::uint8_t>>& artworkPng, std::string& error);
};

} // namespace vexo::library
