#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/media/MediaType.h"
#include "platform/media/SqliteDatabase.h"

// The on-disk form of the media library: one SQLite file that the scanner writes and every
// process reads.
//
//   items            one row per audio file ever found, kept when the file goes (present 0)
//                    so that its identifier stays; paths are canonical, so one file is one item;
//                    bpm 0 and initial_key '' when the file has no such tag
//   artwork          the embedded picture of an item, apart so that listing items stays cheap
//   playlists        one row per playlist file, kept when it goes, like items
//   playlist_entries the resolved paths a playlist names, in order; joined with items.path
//                    at query time, so an entry whose file is indexed later still finds it
//   analysis         what the analyser found in an item's file (tempo, first beat, key in
//                    Camelot notation, loudness, true peak; NULL where it found none), the
//                    analyser's version, why it found less (failure, NULL when it did not),
//                    and the file's modification time and size it saw, so that a changed
//                    file or a newer analyser analyses it again
//
// Identifiers are stored bit for bit as SQLite's signed 64-bit integers.
//
// Schema versions: 1 had no tempo or key; 2 adds items.bpm and items.initial_key. Opening an
// index of version 1 upgrades it in place, keeping every identifier and playlist, and marks
// its items for reading again, so that the next scan fills the new columns. 3 adds the
// analysis table; an upgrade from 2 only adds it, touching no item.
namespace vexo::media {

class LibraryIndex {
public:
    LibraryIndex() = delete;

    // The file's application id ("VXML") and the schema version this program writes.
    static constexpr std::int32_t kApplicationID = 0x56584D4C;
    static constexpr int kSchemaVersion = 3;

    // Opens the index at `path`, making the file, its folder and the tables when missing, and
    // upgrading an index of an earlier version. Fails with InvalidData for a file that is not
    // an index of ours, Unsupported for one of a newer schema, Busy when another process held
    // it locked too long, and the system's reason when it cannot be opened, made or upgraded
    // (a read-only index of an earlier version).
    [[nodiscard]] static Expected<std::unique_ptr<SqliteDatabase>> open(const std::filesystem::path& path);

    [[nodiscard]] static std::int64_t stored(PersistentID id) { return static_cast<std::int64_t>(id); }
    [[nodiscard]] static PersistentID persistentID(std::int64_t stored) { return static_cast<PersistentID>(stored); }
};

} // namespace vexo::media
