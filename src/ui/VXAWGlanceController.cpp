#include "ui/VXAWGlanceController.h"

#include <string>

#include "model/Environment.h"
#include "model/VXAWProtocol.h"
#include "transport/MMWormhole.h"
#include "ui/ArtworkPicture.h"

namespace vexo::ui {
namespace {

std::string glanceIdentifier(std::string_view base) {
    return std::string(base) + std::to_string(model::kGlanceTurntableNumber);
}

} // namespace

VXAWGlanceController::~VXAWGlanceController() {
    teardownWormhole();
}

void VXAWGlanceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
}

void VXAWGlanceController::willActivate() {
    InterfaceController::willActivate();
    setupWormhole();
}

void VXAWGlanceController::didDeactivate() {
    InterfaceController::didDeactivate();
    teardownWormhole();
}

void VXAWGlanceController::setupWormhole() {
    m_wormhole = std::make_shared<transport::MMWormhole>(model::environment().applicationGroupIdentifier,
                                                         std::string(model::kWormholeMessageDirectory),
                                                         model::environment().mainLoop);
    // The status file, not the song information the glance reads: deliberate, and kept.
    m_wormhole->clearMessageContentsForIdentifier(glanceIdentifier(model::VXAWTurntableStatusMessageIdentifier));
    const std::string songInfo = glanceIdentifier(model::VXAWTurntableSongInfoMessageIdentifier);
    // The transport dies with the glance, so its listener may refer to it plainly.
    m_wormhole->listenForMessageWithIdentifier(
        songInfo, [this, songInfo](const plist::Value& message) { processMessageWithIdentifier(songInfo, message); });
    processMessageWithIdentifier(songInfo, m_wormhole->messageWithIdentifier(songInfo));
    model::openParentApplication(plist::Value(plist::Dictionary{
        {std::string(model::VXAWMessageIdentifierKey), plist::Value(model::VXAWTurntableActionMessageIdentifier)},
        {std::string(model::VXAWMessageContentsKey),
         plist::Value(plist::Dictionary{
             {std::string(model::kActionTurntableKey),
              plist::Value(static_cast<std::int32_t>(model::kGlanceTurntableNumber))},
             {std::string(model::kActionCodeKey), plist::Value(std::int64_t{model::VXAWTurntableActionGlanceRefresh})},
         })},
    }));
}

void VXAWGlanceController::teardownWormhole() {
    if (!m_wormhole)
        return;
    m_wormhole->stopListeningForMessageWithIdentifier(glanceIdentifier(model::VXAWTurntableSongInfoMessageIdentifier));
    m_wormhole = nullptr;
}

void VXAWGlanceController::processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents) {
    if (contents.isNull() || identifier != glanceIdentifier(model::VXAWTurntableSongInfoMessageIdentifier))
        return;
    const plist::Value& song = contents[model::VXAWTurntableCurrentSongKey];
    if (song.isNull())
        return;
    m_nameLabel->setText(song[model::VXAWSongNameKey].stringValue());
    m_artistLabel->setText(song[model::VXAWSongArtistKey].stringValue());
    const plist::Value& artwork = song[model::VXAWSongArtworkImageKey];
    if (artwork.isNull()) {
        m_artworkImage->setImageData(displayImageDataForArtworkImageData(defaultArtworkPNG()));
        return;
    }
    // Artwork that is not image data draws nothing and so clears the picture.
    const auto* data = artwork.asData();
    m_artworkImage->setImageData(displayImageDataForArtworkImageData(data ? std::optional(*data) : std::nullopt));
}

std::optional<std::vector<std::uint8_t>> VXAWGlanceController::displayImageDataForArtworkImageData(
    const std::optional<std::vector<std::uint8_t>>& imageData) const {
    return roundArtwork(imageData, graphics::RoundArtworkStyle::glance());
}

} // namespace vexo::ui
