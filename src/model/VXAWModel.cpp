#include "model/VXAWModel.h"

#include "model/VXAWLibrary.h"
#include "model/VXAWMixer.h"
#include "model/VXAWTurntable.h"

#include <mutex>

namespace vexo::model {
namespace {

std::mutex g_sharedModelMutex;
std::shared_ptr<VXAWModel> g_sharedModel;

} // namespace

std::shared_ptr<VXAWModel> VXAWModel::sharedModel() {
    std::lock_guard lock(g_sharedModelMutex);
    if (!g_sharedModel)
        g_sharedModel = std::make_shared<VXAWModel>();
    return g_sharedModel;
}

void VXAWModel::forgetSharedModel() {
    std::shared_ptr<VXAWModel> previous;
    {
        std::lock_guard lock(g_sharedModelMutex);
        previous = std::move(g_sharedModel);
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
