#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "phone/Catalog.h"
#include "platform/plist/Value.h"

// The phone application's library browser: four sections shown as tabs (playlists, artists,
// albums, songs), each a list at level 0; opening a playlist, artist or album lists its
// songs at level 1. The watch moves it with the tab and back actions; opening happens on
// the phone (open()).
//
// The list is published to the watch as "libraryItems" messages, one page of
// kPageLength items per message in order. A song is {"songID", "name", "artist",
// "duration"}; a playlist, artist or album is {"name", "numberOfItems"}.
namespace vexo::phone {

class LibraryBrowser {
public:
    enum class Section { Playlists, Artists, Albums, Songs };
    static constexpr std::int64_t kPageLength = 10;
    static constexpr std::size_t kSectionCount = 4;

    // REQUIRES: `catalog` outlives the browser.
    explicit LibraryBrowser(const Catalog& catalog);

    // Reads the catalog again (after the media library changed), staying in the section
    // and, while it still exists, in the open collection.
    void reload();

    void nextSection();
    void previousSection();
    // Back to level 0; false when already there.
    bool back();
    // Opens entry `index` of a level-0 list of playlists, artists or albums; false (nothing
    // changed) for the song list, at level 1, or out of range.
    bool open(std::size_t index);

    [[nodiscard]] Section section() const { return m_section; }
    [[nodiscard]] std::int64_t navigationLevel() const { return m_open ? 1 : 0; }
    [[nodiscard]] std::string sectionName() const;
    [[nodiscard]] std::size_t numberOfItems() const;

    // The songs of the open collection, or nothing at level 0 and in the song list.
    [[nodiscard]] const std::vector<media::MediaItem>* openSongs() const;

    // The "libraryItems" message of page `page` (items page * kPageLength onwards).
    [[nodiscard]] plist::Value pageMessage(std::size_t page) const;
    // Pages the list takes; at least one, so that an empty list is published too.
    [[nodiscard]] std::size_t pageCount() const;

private:
    struct Group {
        std::string name;
        std::vector<media::MediaItem> songs;
    };

    [[nodiscard]] const std::vector<Group>& groups() const;
    [[nodiscard]] plist::Value entry(std::size_t index) const;

    const Catalog& m_catalog;
    Section m_section = Section::Playlists;
    // Level 1: the open group of the section.
    std::optional<std::size_t> m_open;
    std::vector<media::MediaItem> m_songs;
    // Playlists, artists, albums.
    std::vector<Group> m_groups[3];
};

} // namespace vexo::phone
