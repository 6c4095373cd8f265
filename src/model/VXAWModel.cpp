#include "model/VXAWModel.h"

#include <mutex>

#include "model/VXAWLibrary.h"
#include "model/VXAWMixer.h"
#include "model/VXAWTurntable.h"

namespace vexo::model {
namespace {

std::mutex g_sharedModelMutex;

// The slot is made on first use and never destroyed: the model lives until the process ends,
// and tearing it down during exit would reach into the notification centre and the main
// loop, which are gone by then. Only installing a new environment releases a model.
std::shared_ptr<VXAWModel>& sharedSlot() {
    static auto* slot = new std::shared_ptr<VXAWModel>();
    return *slot;
}

} // namespace

std::shared_ptr<VXAWModel> VXAWModel::sharedModel() {
    std::lock_guard lock(g_sharedModelMutex);
    std::shared_ptr<VXAWModel>& slot = sharedSlot();
    if (!slot)
        slot = std::make_shared<VXAWModel>();
    return slot;
}

void VXAWModel::forgetSharedModel() {
    std::shared_ptr<VXAWModel> previous;
    {
        std::lock_guard lock(g_sharedModelMutex);
        previous = std::move(sharedSlot());
    }
}

VXAWModel::VXAWModel() {
    setTurntable1(std::make_shared<VXAWTurntable>(1));
    setTurntable2(std::make_shared<VXAWTurntable>(2));
    setTurntables({m_turntable1, m_turntable2});
    setMixer(std::make_shared<VXAWMixer>());
    setLibrary(std::make_shared<VXAWLibrary>());
}

VXAWModel::~VXAWModel() = default;

std::shared_ptr<VXAWTurntable> VXAWModel::turntable(std::int64_t number) const {
    if (number < 1)
        return nullptr;
    const auto index = static_cast<std::uint64_t>(number - 1);
    if (index >= m_turntables.size())
        return nullptr;
    return m_turntables[index];
}

} // namespace vexo::model
