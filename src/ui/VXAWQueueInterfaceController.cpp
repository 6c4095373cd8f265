#include "ui/VXAWQueueInterfaceController.h"

#include <algorithm>
#include <string>

#include "model/KMExtensions.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "model/VXAWTurntable.h"
#include "ui/Localized.h"
#include "ui/VXAWSongItemRowType.h"

namespace vexo::ui {
namespace {

using model::VXAWTurntable;

constexpr std::string_view kTitleFormat = "Deck %ld";
constexpr std::string_view kNumberField = "%ld";
constexpr std::string_view kRowType = "songItemRowType";
// Each a line of its own: the face does not wrap labels.
constexpr std::string_view kNoSongText = "No song loaded.";
constexpr std::string_view kNoSongHint = "Choose one in the library.";
constexpr std::string_view kNothingFollowsText = "Nothing follows this song.";
constexpr std::string_view kNothingFollowsHint = "Choose the next in the library.";

} // namespace

VXAWQueueInterfaceController::~VXAWQueueInterfaceController() = default;

void VXAWQueueInterfaceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
    m_turntableNumber = context.value<std::int64_t>("turntableNumber", 0);
    if (const auto model = model::VXAWModel::sharedModel())
        m_turntable = model->turntable(m_turntableNumber);
    std::string title = "--";
    if (m_turntableNumber > 0) {
        title = localizedString(kTitleFormat);
        if (auto field = title.find(kNumberField); field != std::string::npos)
            title.replace(field, kNumberField.size(), std::to_string(m_turntableNumber));
    }
    m_nameLabel->setText(std::move(title));
}

void VXAWQueueInterfaceController::willActivate() {
    InterfaceController::willActivate();
    if (m_turntable)
        m_observations.add(m_turntable, VXAWTurntable::kSongKeyPath, runtime::ObservingOptions::Initial);
    else
        showDeck();
}

void VXAWQueueInterfaceController::didDeactivate() {
    InterfaceController::didDeactivate();
    m_observations.removeAll();
}

void VXAWQueueInterfaceController::observeValueForKeyPath(std::string_view keyPath, runtime::Observable&,
                                                          const runtime::KeyValueChange&) {
    if (keyPath == VXAWTurntable::kSongKeyPath)
        showDeck();
}

std::vector<media::MediaItem> VXAWQueueInterfaceController::songsFollowing(const model::VXAWSong* song,
                                                                           const VXAWTurntable& deck) {
    const auto& source = deck.sourcePlaylist();
    if (song == nullptr || !song->identifier() || !source)
        return {};
    const auto& items = source->items();
    // The phone names a song by the text form of its identifier; a song that appears more
    // than once is taken at its first place.
    const auto current = std::find_if(items.begin(), items.end(), [&](const media::MediaItem& item) {
        return model::KMExtensions::persistentIDString(item) == *song->identifier();
    });
    if (current == items.end())
        return {};
    std::vector<media::MediaItem> following;
    const auto pageSize = static_cast<std::size_t>(model::VXAWLibraryDefaultItemPageSize);
    for (auto item = std::next(current); item != items.end() && following.size() < pageSize; ++item) {
        // A song whose file is gone is stepped over by the phone too.
        if (item->assetURL())
            following.push_back(*item);
    }
    return following;
}

void VXAWQueueInterfaceController::showDeck() {
    const model::VXAWSong* song = m_turntable ? m_turntable->song().get() : nullptr;
    m_nowPlayingGroup->setHidden(song == nullptr);
    if (song != nullptr) {
        m_songNameLabel->setText(song->name() && !song->name()->empty() ? *song->name() : "--");
        m_songArtistLabel->setText(song->artist() && !song->artist()->empty() ? *song->artist() : "--");
    }

    const std::vector<media::MediaItem> following =
        m_turntable ? songsFollowing(song, *m_turntable) : std::vector<media::MediaItem>{};
    m_upNextLabel->setHidden(following.empty());
    m_table->setNumberOfRows(following.size(), kRowType);
    for (std::size_t index = 0; index < following.size(); ++index) {
        auto row = m_table->rowControllerAtIndex<VXAWSongItemRowType>(index);
        if (!row)
            continue;
        row->nameLabel()->setText(following[index].valueForProperty(media::MediaItem::kPropertyTitle).stringValue());
        row->artistLabel()->setText(following[index].valueForProperty(media::MediaItem::kPropertyArtist).stringValue());
    }

    m_messageGroup->setHidden(!following.empty());
    if (following.empty()) {
        m_messageLabel->setText(localizedString(song == nullptr ? kNoSongText : kNothingFollowsText));
        m_hintLabel->setText(localizedString(song == nullptr ? kNoSongHint : kNothingFollowsHint));
    }
}

void VXAWQueueInterfaceController::showLibrary() {
    if (m_turntable)
        presentControllerWithName("library", watchkit::Context{{"turntable", std::any(m_turntable)}});
}

void VXAWQueueInterfaceController::close() {
    dismissController();
}

} // namespace vexo::ui
