#include "phone/LibraryBrowser.h"

#include <algorithm>
#include <map>

#include "model/VXAWProtocol.h"
#include "phone/PersistentIDText.h"

namespace vexo::phone {
namespace {

using namespace vexo::model;

constexpr std::string_view kSectionNames[] = {"Playlists", "Artists", "Albums", "Songs"};
constexpr std::string_view kUnknownArtist = "Unknown Artist";
constexpr std::string_view kUnknownAlbum = "Unknown Album";

std::string key(std::string_view constant) {
    return std::string(constant);
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return result;
}

// Groups `songs` by the text `by` gives, named groups by name ignoring ASCII case, songs
// keeping the library's order within a group.
template <typename By>
std::vector<std::pair<std::string, std::vector<media::MediaItem>>> groupBy(const std::vector<media::MediaItem>& songs,
                                                                           std::string_view unknown, By by) {
    std::map<std::pair<std::string, std::string>, std::vector<media::MediaItem>> grouped;
    for (const media::MediaItem& song : songs) {
        std::string name = by(song);
        if (name.empty())
            name = unknown;
        grouped[{lowered(name), name}].push_back(song);
    }
    std::vector<std::pair<std::string, std::vector<media::MediaItem>>> result;
    for (auto& [names, items] : grouped)
        result.emplace_back(names.second, std::move(items));
    return result;
}

} // namespace

LibraryBrowser::LibraryBrowser(const Catalog& catalog)
    : m_catalog(catalog) {
    reload();
}

void LibraryBrowser::reload() {
    std::optional<std::string> openName;
    if (m_open && m_section != Section::Songs)
        openName = groups()[*m_open].name;

    m_songs = m_catalog.items();
    for (auto& list : m_groups)
        list.clear();
    for (media::MediaPlaylist& playlist : m_catalog.playlists())
        m_groups[0].push_back({playlist.name(), playlist.items()});
    for (auto& [name, songs] : groupBy(m_songs, kUnknownArtist, [](const media::MediaItem& s) { return s.artist(); }))
        m_groups[1].push_back({name, std::move(songs)});
    for (auto& [name, songs] :
         groupBy(m_songs, kUnknownAlbum, [](const media::MediaItem& s) { return s.albumTitle(); }))
        m_groups[2].push_back({name, std::move(songs)});

    m_open.reset();
    if (openName) {
        const std::vector<Group>& list = groups();
        const auto found = std::find_if(list.begin(), list.end(), [&](const Group& g) { return g.name == *openName; });
        if (found != list.end())
            m_open = static_cast<std::size_t>(found - list.begin());
    }
}

void LibraryBrowser::nextSection() {
    m_section = static_cast<Section>((static_cast<std::size_t>(m_section) + 1) % kSectionCount);
    m_open.reset();
}

void LibraryBrowser::previousSection() {
    m_section = static_cast<Section>((static_cast<std::size_t>(m_section) + kSectionCount - 1) % kSectionCount);
    m_open.reset();
}

bool LibraryBrowser::back() {
    if (!m_open)
        return false;
    m_open.reset();
    return true;
}

bool LibraryBrowser::open(std::size_t index) {
    if (m_section == Section::Songs || m_open || index >= groups().size())
        return false;
    m_open = index;
    return true;
}

std::string LibraryBrowser::sectionName() const {
    if (m_open)
        return groups()[*m_open].name;
    return std::string(kSectionNames[static_cast<std::size_t>(m_section)]);
}

std::size_t LibraryBrowser::numberOfItems() const {
    if (const auto* songs = openSongs())
        return songs->size();
    return m_section == Section::Songs ? m_songs.size() : groups().size();
}

const std::vector<media::MediaItem>* LibraryBrowser::openSongs() const {
    if (!m_open)
        return nullptr;
    return &groups()[*m_open].songs;
}

const std::vector<LibraryBrowser::Group>& LibraryBrowser::groups() const {
    static const std::vector<Group> none;
    return m_section == Section::Songs ? none : m_groups[static_cast<std::size_t>(m_section)];
}

plist::Value LibraryBrowser::entry(std::size_t index) const {
    const media::MediaItem* song = nullptr;
    if (const auto* songs = openSongs())
        song = &(*songs)[index];
    else if (m_section == Section::Songs)
        song = &m_songs[index];
    if (song != nullptr)
        return plist::Value(plist::Dictionary{
            {key(VXAWSongIdentifierKey), plist::Value(persistentIDText(song->persistentID()))},
            {key(VXAWSongNameKey), plist::Value(song->title())},
            {key(VXAWSongArtistKey), plist::Value(song->artist())},
            {key(VXAWSongDurationKey), plist::Value(static_cast<std::int64_t>(song->playbackDuration()))},
        });
    const Group& group = groups()[index];
    return plist::Value(plist::Dictionary{
        {key(VXAWSongNameKey), plist::Value(group.name)},
        {key(VXAWLibraryNumberOfItemsKey), plist::Value(static_cast<std::int64_t>(group.songs.size()))},
    });
}

std::size_t LibraryBrowser::pageCount() const {
    const std::size_t count = numberOfItems();
    return count == 0 ? 1 : (count + kPageLength - 1) / kPageLength;
}

plist::Value LibraryBrowser::pageMessage(std::size_t page) const {
    const std::size_t count = numberOfItems();
    const std::size_t first = std::min(count, page * static_cast<std::size_t>(kPageLength));
    const std::size_t last = std::min(count, first + static_cast<std::size_t>(kPageLength));
    plist::Array items;
    for (std::size_t index = first; index < last; ++index)
        items.push_back(entry(index));
    const std::string range = "{" + std::to_string(first) + ", " + std::to_string(last - first) + "}";
    return plist::Value(plist::Dictionary{
        {key(VXAWLibraryVisibleKey), plist::Value(true)},
        {key(VXAWLibrarySectionNameKey), plist::Value(sectionName())},
        {key(VXAWLibrarySectionIsAvailableKey), plist::Value(count > 0)},
        {key(VXAWLibraryNavigationLevelKey), plist::Value(navigationLevel())},
        {key(VXAWLibraryNumberOfItemsKey), plist::Value(static_cast<std::int64_t>(count))},
        {key(VXAWLibraryRangeOfItemsKey), plist::Value(range)},
        {key(VXAWLibraryItemsKey), plist::Value(std::move(items))},
    });
}

} // namespace vexo::phone
