#include "ui/VXAWiTunesPlaylistInterfaceController.h"

#include <stdexcept>

#include "model/KMExtensions.h"
#include "model/VXAWProtocol.h"
#include "model/VXAWTurntable.h"
#include "platform/watchkit/Color.h"
#include "ui/Paging.h"
#include "ui/VXAWLibraryInterfaceController.h"
#include "ui/VXAWSongItemRowType.h"

namespace vexo::ui {
namespace {

constexpr std::string_view kRowType = "songItemRowType";

} // namespace

void VXAWiTunesPlaylistInterfaceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
    if (const auto* playlist = context.get<media::MediaPlaylist>("playlist"))
        m_playlist = *playlist;
    m_turntable = context.value<std::shared_ptr<model::VXAWTurntable>>("turntable");
    m_libraryInterfaceController = context.value<std::shared_ptr<VXAWLibraryInterfaceController>>("library");
    m_nameLabel->setText(m_playlist ? m_playlist->valueForProperty(media::MediaPlaylist::kPropertyName).stringValue()
                                    : std::nullopt);
}

void VXAWiTunesPlaylistInterfaceController::willActivate() {
    InterfaceController::willActivate();
    insertPage();
}

void VXAWiTunesPlaylistInterfaceController::insertPage() {
    const std::size_t total = itemCount();
    if (total == 0) {
        m_placeholderGroup->setHidden(false);
        return;
    }
    m_placeholderGroup->setHidden(true);
    const std::size_t shown = m_displayedItems ? m_displayedItems->size() : 0;
    const std::size_t length = nextPageLength(total, shown);

    m_table->insertRowsAtIndexes(watchkit::Table::indexesInRange(shown, length), kRowType);
    if (!m_displayedItems)
        m_displayedItems.emplace();
    const auto& items = m_playlist->items();
    m_displayedItems->insert(m_displayedItems->end(), items.begin() + static_cast<std::ptrdiff_t>(shown),
                             items.begin() + static_cast<std::ptrdiff_t>(shown + length));
    for (std::size_t index = shown; index < shown + length; ++index) {
        auto row = m_table->rowControllerAtIndex<VXAWSongItemRowType>(index);
        if (!row)
            continue;
        const media::MediaItem& item = (*m_displayedItems)[index];
        row->nameLabel()->setText(item.valueForProperty(media::MediaItem::kPropertyTitle).stringValue());
        row->artistLabel()->setText(item.valueForProperty(media::MediaItem::kPropertyArtist).stringValue());
        // The phone cannot play a file that is gone; otherwise the layout's colour stays.
        if (!item.assetURL())
            row->nameLabel()->setTextColor(watchkit::colors::lightGray());
    }
    m_loadMoreButton->setHidden(m_displayedItems->size() == total);
}

void VXAWiTunesPlaylistInterfaceController::tableDidSelectRowAtIndex(watchkit::Table&, std::size_t rowIndex) {
    if (rowIndex >= itemCount())
        throw std::out_of_range("song row " + std::to_string(rowIndex) + " beyond the playlist's " +
                                std::to_string(itemCount()) + " songs");
    const media::MediaItem& item = m_playlist->items()[rowIndex];
    if (!item.assetURL())
        return;
    const auto itemID = model::KMExtensions::persistentIDStringForNumber(
        item.valueForProperty(media::MediaItem::kPropertyPersistentID));
    if (!itemID)
        return;
    if (m_turntable) {
        m_turntable->sendActionMessage(
            model::VXAWTurntableActionLoadItem,
            plist::Value(plist::Dictionary{{std::string(model::VXAWLibraryItemIDKey), plist::Value(*itemID)}}));
        if (m_playlist)
            m_turntable->setSourcePlaylist(*m_playlist);
    }
    dismissController();
    if (m_libraryInterfaceController)
        m_libraryInterfaceController->dismissController();
}

} // namespace vexo::ui
