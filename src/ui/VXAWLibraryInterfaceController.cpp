#include "ui/VXAWLibraryInterfaceController.h"

#include <stdexcept>

#include "model/VXAWLibrary.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "model/VXAWTurntable.h"
#include "ui/Paging.h"
#include "ui/VXAWGroupItemRowType.h"

namespace vexo::ui {
namespace {

using model::VXAWLibrary;

constexpr std::string_view kRowType = "groupItemRowType";
constexpr std::string_view kPlaylistImage = "library-playlist.png";

} // namespace

VXAWLibraryInterfaceController::VXAWLibraryInterfaceController()
    : m_library(model::VXAWModel::sharedModel()->library()) {}

VXAWLibraryInterfaceController::~VXAWLibraryInterfaceController() = default;

void VXAWLibraryInterfaceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
    m_turntable = context.value<std::shared_ptr<model::VXAWTurntable>>("turntable");
    m_sectionNameLabel->setText(std::string());
}

void VXAWLibraryInterfaceController::willActivate() {
    InterfaceController::willActivate();
    m_observations.add(m_library, VXAWLibrary::kPlaylistsKeyPath,
                       runtime::ObservingOptions::Old | runtime::ObservingOptions::Initial);
}

void VXAWLibraryInterfaceController::didDeactivate() {
    InterfaceController::didDeactivate();
    m_observations.removeAll();
}

void VXAWLibraryInterfaceController::observeValueForKeyPath(std::string_view keyPath, runtime::Observable&,
                                                            const runtime::KeyValueChange& change) {
    if (keyPath != VXAWLibrary::kPlaylistsKeyPath)
        return;
    // A real change always carries the old value, even when that was "no playlists"; only
    // the first notice of an activation has none, and it must not lose the page reached.
    if (m_displayedPlaylists && !change.oldValue.has_value())
        return;
    m_displayedPlaylists.reset();
    m_table->setRowTypes({});
    insertPage();
}

void VXAWLibraryInterfaceController::insertPage() {
    if (!m_library)
        return;
    const auto& playlists = m_library->playlists();
    if (playlists && playlists->empty()) {
        m_placeholderGroup->setHidden(false);
        return;
    }
    m_placeholderGroup->setHidden(true);
    const std::size_t total = playlists ? playlists->size() : 0;
    const std::size_t shown = m_displayedPlaylists ? m_displayedPlaylists->size() : 0;
    const std::size_t length = nextPageLength(total, shown);

    m_table->insertRowsAtIndexes(watchkit::Table::indexesInRange(shown, length), kRowType);
    if (!m_displayedPlaylists)
        m_displayedPlaylists.emplace();
    for (std::size_t i = 0; i < length; ++i)
        m_displayedPlaylists->push_back((*playlists)[shown + i]);
    for (std::size_t index = shown; index < shown + length; ++index) {
        auto row = m_table->rowControllerAtIndex<VXAWGroupItemRowType>(index);
        if (!row)
            continue;
        row->nameLabel()->setText((*m_displayedPlaylists)[index].name());
        row->image()->setImageNamed(std::string(kPlaylistImage));
    }
    m_loadMoreButton->setHidden(m_displayedPlaylists->size() == total);
}

void VXAWLibraryInterfaceController::tableDidSelectRowAtIndex(watchkit::Table&, std::size_t rowIndex) {
    if (!m_displayedPlaylists || rowIndex >= m_displayedPlaylists->size())
        throw std::out_of_range("playlist row " + std::to_string(rowIndex) + " is not shown");
    if (!m_turntable)
        throw std::logic_error("the library screen was presented without a deck");
    auto self = std::static_pointer_cast<VXAWLibraryInterfaceController>(shared_from_this());
    presentControllerWithName("itunesPlaylist", watchkit::Context{
                                                    {"playlist", std::any((*m_displayedPlaylists)[rowIndex])},
                                                    {"turntable", std::any(m_turntable)},
                                                    {"library", std::any(self)},
                                                });
}

void VXAWLibraryInterfaceController::back() {
    m_library->sendActionMessage(model::VXAWLibraryActionBack, plist::Value(plist::Dictionary{}));
}

void VXAWLibraryInterfaceController::previousTab() {
    m_library->sendActionMessage(model::VXAWLibraryActionPreviousTab, plist::Value(plist::Dictionary{}));
}

void VXAWLibraryInterfaceController::nextTab() {
    m_library->sendActionMessage(model::VXAWLibraryActionNextTab, plist::Value(plist::Dictionary{}));
}

} // namespace vexo::ui
