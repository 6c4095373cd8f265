#pragma once

#include "platform/watchkit/InterfaceClass.h"
#include "platform/watchkit/InterfaceController.h"
#include "platform/watchkit/Label.h"
#include "platform/watchkit/Outlet.h"

#include <cstdint>

// The queue screen ("queue"), presented by a deck page with {"turntableNumber": n}. The watch
// is not told what a deck has queued, so the screen names the deck, says plainly that its
// queue is kept on the phone, and offers a close button besides the platform's own close
// control. Main loop's thread only.
namespace vexo::ui {

class VXAWQueueInterfaceController : public watchkit::InterfaceController {
public:
    VXAWQueueInterfaceController() = default;

    template <class Self> static void describeInterface(watchkit::InterfaceClass<Self>& c) {
        using T = VXAWQueueInterfaceController;
        c.outlet("nameLabel", &T::m_nameLabel);
        c.outlet("messageLabel", &T::m_messageLabel);
        c.action("close", &T::close);
    }

    // Shows "Deck <n>" for the context's deck number ("--" without one) and the message.
    void awakeWithContext(const watchkit::Context& context) override;
    // Takes the screen off.
    void close();

    // The deck number of the context; 0 when it had none.
    [[nodiscard]] std::int64_t turntableNumber() const { return m_turntableNumber; }

private:
    watchkit::Outlet<watchkit::Label> m_nameLabel;
    watchkit::Outlet<watchkit::Label> m_messageLabel;
    std::int64_t m_turntableNumber = 0;
};

} // namespace vexo::ui
