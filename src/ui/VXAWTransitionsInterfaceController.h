#pragma once

#include <memory>

#include "platform/runtime/KeyValueObserver.h"
#include "platform/text/NumberFormatter.h"
#include "platform/watchkit/Group.h"
#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"
#include "platform/watchkit/Switch.h"
#include "platform/watchkit/Table.h"
#include "ui/ObservationList.h"

namespace vexo::model {
class VXAWMixer;
}

// The transitions screen: the watch-only transition mode (a switch), the transition types the
// phone offers with the selected one in orange, and the transition duration with its next and
// previous controls. Row 0 of the list is a heading; row i shows type i - 1.
//
// It observes the mixer's transitionMode, transitionDuration and transitionType while active.
// The list of types is rebuilt only by a transitionMode notice (so on every activation),
// not when the phone offers other types. Main loop's thread only.
namespace vexo::ui {

class VXAWTransitionsInterfaceController : public watchkit::InterfaceController, public runtime::KeyValueObserver {
public:
    // Takes the shared model's mixer and makes the duration formatter.
    VXAWTransitionsInterfaceController();
    ~VXAWTransitionsInterfaceController() override;

    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWTransitionsInterfaceController;
        c.outlet("transitionModeSwitch", &T::m_transitionModeSwitch);
        c.outlet("table", &T::m_table);
        c.outlet("transitionDurationGroup", &T::m_transitionDurationGroup);
        c.outlet("transitionDurationLabel", &T::m_transitionDurationLabel);
        c.action("toggleTransitionMode", &T::toggleTransitionMode);
        c.action("transitionDurationSelectNext", &T::transitionDurationSelectNext);
        c.action("transitionDurationSelectPrevious", &T::transitionDurationSelectPrevious);
    }

    // Tints the switch; the context is ignored.
    void awakeWithContext(const watchkit::Context& context) override;
    // Observes transitionMode, transitionDuration and transitionType, each with an immediate
    // first notice, in that order.
    void willActivate() override;
    void didDeactivate() override;

    void observeValueForKeyPath(std::string_view keyPath, runtime::Observable& object,
                                const runtime::KeyValueChange& change) override;

    // Rebuilds the list: none in mode 0 (and the duration hidden); otherwise the heading and
    // one row per offered type (no rows at all when none is offered), then the colours.
    void updateUI();
    // Colours the selected type's name orange and the others white.
    void updateTransitionTypeSelection();

    // Sends mixer action 10 with {"transitionType": type row - 1}. The heading row has no type:
    // row 0, like any row past the list, throws std::out_of_range, as the platform raises.
    void tableDidSelectRowAtIndex(watchkit::Table& table, std::size_t rowIndex) override;

    // Flips the stored mode between 0 and 1; any other stored mode stays. Nothing is sent.
    void toggleTransitionMode();
    // Mixer actions 8 and 9.
    void transitionDurationSelectNext();
    void transitionDurationSelectPrevious();

    [[nodiscard]] const std::shared_ptr<model::VXAWMixer>& mixer() const { return m_mixer; }

private:
    watchkit::Outlet<watchkit::Switch> m_transitionModeSwitch;
    watchkit::Outlet<watchkit::Table> m_table;
    watchkit::Outlet<watchkit::Group> m_transitionDurationGroup;
    watchkit::Outlet<watchkit::Label> m_transitionDurationLabel;
    std::shared_ptr<model::VXAWMixer> m_mixer;
    text::NumberFormatter m_transitionDurationFormatter;
    // Declared after the mixer, so that it is destroyed before it.
    ObservationList m_observations{*this};
};

} // namespace vexo::ui
