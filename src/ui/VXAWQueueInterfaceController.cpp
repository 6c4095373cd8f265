#include "ui/VXAWQueueInterfaceController.h"

#include "ui/Localized.h"

#include <string>

namespace vexo::ui {
namespace {

constexpr std::string_view kTitleFormat = "Deck %ld";
constexpr std::string_view kNumberField = "%ld";

} // namespace

void VXAWQueueInterfaceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
    m_turntableNumber = context.value<std::int64_t>("turntableNumber", 0);
    std::string title = "--";
    if (m_turntableNumber > 0) {
        title = localizedString(kTitleFormat);
        if (auto field = title.find(kNumberField); field != std::string::npos)
            title.replace(field, kNumberField.size(), std::to_string(m_turntableNumber));
    }
    m_nameLabel->setText(std::move(title));
    m_messageLabel->setText(localizedString("The queue of this deck is kept on the phone."));
}

void VXAWQueueInterfaceController::close() {
    dismissController();
}

} // namespace vexo::ui
