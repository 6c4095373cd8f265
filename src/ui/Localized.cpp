#include "ui/Localized.h"

#include "platform/text/Localization.h"

namespace vexo::ui {

std::string localizedString(std::string_view key) {
    return text::Localization::main().localizedString(key, "", "");
}

} // namespace vexo::ui
