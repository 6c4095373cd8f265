#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/plist/Value.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/Image.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"

namespace vexo::transport {
class MMWormhole;
}

// The glance: title, artist and round artwork of the song the phone reports for deck 0.
//
// It does not use the shared model. While on screen it owns a transport of its own: each
// activation clears the stored deck-0 status, listens for deck 0's song information, shows
// the stored one at once, and asks the phone for a refresh (turntable action 17 for deck 0);
// deactivation drops the transport. Main loop's thread only.
namespace vexo::ui {

class VXAWGlanceController : public watchkit::InterfaceController {
public:
    VXAWGlanceController() = default;
    ~VXAWGlanceController() override;

    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWGlanceController;
        c.outlet("artworkImage", &T::m_artworkImage);
        c.outlet("nameLabel", &T::m_nameLabel);
        c.outlet("artistLabel", &T::m_artistLabel);
        c.outlet("placeholderGroup", &T::m_placeholderGroup);
    }

    void awakeWithContext(const watchkit::Context& context) override;
    void willActivate() override;
    void didDeactivate() override;

    void setupWormhole();
    void teardownWormhole();

    // Shows the song of a "turntableSongInfo0" message; any other identifier, no message or
    // no "currentSong" leaves the screen as it is.
    void processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents);

    // The 200-point round picture (8-point transparent margin) of any picture, as PNG;
    // nothing when the data is nothing or does not decode.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>>
    displayImageDataForArtworkImageData(const std::optional<std::vector<std::uint8_t>>& imageData) const;

    // The transport while the glance is on screen; nothing otherwise.
    [[nodiscard]] const std::shared_ptr<transport::MMWormhole>& wormhole() const { return m_wormhole; }

private:
    watchkit::Outlet<watchkit::Image> m_artworkImage;
    watchkit::Outlet<watchkit::Label> m_nameLabel;
    watchkit::Outlet<watchkit::Label> m_artistLabel;
    watchkit::Outlet<watchkit::Group> m_placeholderGroup;
    std::shared_ptr<transport::MMWormhole> m_wormhole;
};

} // namespace vexo::ui
