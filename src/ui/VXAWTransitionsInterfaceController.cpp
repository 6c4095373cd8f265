#include "ui/VXAWTransitionsInterfaceController.h"

#include <stdexcept>
#include <string>
#include <vector>

#include "model/VXAWMixer.h"
#include "model/VXAWModel.h"
#include "model/VXAWProtocol.h"
#include "platform/watchkit/Color.h"
#include "ui/Localized.h"
#include "ui/VXAWTransitionTypeRowType.h"

namespace vexo::ui {
namespace {

using model::VXAWMixer;

constexpr std::string_view kSectionRowType = "transitionTypeSectionRowType";
constexpr std::string_view kTypeRowType = "transitionTypeRowType";

} // namespace

VXAWTransitionsInterfaceController::VXAWTransitionsInterfaceController()
    : m_mixer(model::VXAWModel::sharedModel()->mixer()),
      m_transitionDurationFormatter(text::NumberFormatter::decimal()) {}

VXAWTransitionsInterfaceController::~VXAWTransitionsInterfaceController() = default;

void VXAWTransitionsInterfaceController::awakeWithContext(const watchkit::Context& context) {
    InterfaceController::awakeWithContext(context);
    m_transitionModeSwitch->setColor(watchkit::colors::selection());
}

void VXAWTransitionsInterfaceController::willActivate() {
    InterfaceController::willActivate();
    for (std::string_view keyPath :
         {VXAWMixer::kTransitionModeKeyPath, VXAWMixer::kTransitionDurationKeyPath, VXAWMixer::kTransitionTypeKeyPath})
        m_observations.add(m_mixer, keyPath, runtime::ObservingOptions::Initial);
}

void VXAWTransitionsInterfaceController::didDeactivate() {
    InterfaceController::didDeactivate();
    m_observations.removeAll();
}

void VXAWTransitionsInterfaceController::observeValueForKeyPath(std::string_view keyPath, runtime::Observable&,
                                                                const runtime::KeyValueChange&) {
    if (!m_mixer)
        return;
    if (keyPath == VXAWMixer::kTransitionModeKeyPath) {
        const std::int64_t mode = m_mixer->transitionMode();
        if (mode == 1)
            m_transitionModeSwitch->setOn(true);
        else if (mode == 0)
            m_transitionModeSwitch->setOn(false);
        updateUI();
    } else if (keyPath == VXAWMixer::kTransitionDurationKeyPath) {
        m_transitionDurationLabel->setText(m_transitionDurationFormatter.format(m_mixer->transitionDuration()) + "s");
    } else if (keyPath == VXAWMixer::kTransitionTypeKeyPath) {
        updateTransitionTypeSelection();
    }
}

void VXAWTransitionsInterfaceController::updateUI() {
    if (m_mixer->transitionMode() == 0) {
        m_transitionDurationGroup->setHidden(true);
        m_table->setRowTypes({});
        return;
    }
    m_transitionDurationGroup->setHidden(false);
    const auto& types = m_mixer->availableTransitionTypes();
    std::vector<std::string> rowTypes;
    if (types && !types->empty()) {
        rowTypes.emplace_back(kSectionRowType);
        rowTypes.insert(rowTypes.end(), types->size(), std::string(kTypeRowType));
    }
    m_table->setRowTypes(rowTypes);
    if (types) {
        for (std::size_t i = 0; i < types->size(); ++i) {
            if (auto row = m_table->rowControllerAtIndex<VXAWTransitionTypeRowType>(i + 1))
                row->nameLabel()->setText(localizedString((*types)[i].stringValue().value_or("")));
        }
    }
    updateTransitionTypeSelection();
}

void VXAWTransitionsInterfaceController::updateTransitionTypeSelection() {
    if (m_table->numberOfRows() == 0)
        return;
    const auto& types = m_mixer->availableTransitionTypes();
    if (!types)
        return;
    const auto& selected = m_mixer->transitionType();
    for (std::size_t i = 0; i < types->size(); ++i) {
        // Rows built from an older list may be fewer than the names offered now.
        auto row = m_table->rowControllerAtIndex<VXAWTransitionTypeRowType>(i + 1);
        if (!row)
            continue;
        const auto* name = (*types)[i].asString();
        const bool isSelected = selected && name && *name == *selected;
        row->nameLabel()->setTextColor(isSelected ? watchkit::colors::selection() : watchkit::colors::white());
    }
}

void VXAWTransitionsInterfaceController::tableDidSelectRowAtIndex(watchkit::Table&, std::size_t rowIndex) {
    const auto& types = m_mixer->availableTransitionTypes();
    const std::size_t count = types ? types->size() : 0;
    if (rowIndex == 0 || rowIndex - 1 >= count)
        throw std::out_of_range("transition type index " + std::to_string(static_cast<long long>(rowIndex) - 1) +
                                " beyond bounds of " + std::to_string(count) + " types");
    m_mixer->sendActionMessage(
        model::VXAWMixerActionSetTransitionType,
        plist::Value(plist::Dictionary{{std::string(model::VXAWMixerTransitionTypeKey), (*types)[rowIndex - 1]}}));
}

void VXAWTransitionsInterfaceController::toggleTransitionMode() {
    const std::int64_t mode = m_mixer->transitionMode();
    if (mode == 1)
        m_mixer->setTransitionMode(0);
    else if (mode == 0)
        m_mixer->setTransitionMode(1);
}

void VXAWTransitionsInterfaceController::transitionDurationSelectNext() {
    m_mixer->sendActionMessage(model::VXAWMixerActionTransitionDurationNext);
}

void VXAWTransitionsInterfaceController::transitionDurationSelectPrevious() {
    m_mixer->sendActionMessage(model::VXAWMixerActionTransitionDurationPrevious);
}

} // namespace vexo::ui
