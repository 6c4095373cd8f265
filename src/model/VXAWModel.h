#pragma once

#include <cstdint>
#include <memory>
#include <vector>

// The one shared root of the watch-side model: both decks, the mixer and the library. Every
// interface controller reaches them through it; the glance does not.
namespace vexo::model {

class VXAWTurntable;
class VXAWMixer;
class VXAWLibrary;

class VXAWModel {
public:
    // The shared instance, created on the first call (once, even when threads race) in the
    // installed environment and kept until another environment is installed; it is never
    // destroyed at process exit, so nothing of it runs after the main loop has gone.
    static std::shared_ptr<VXAWModel> sharedModel();

    // Builds deck 1, deck 2, the mixer and the library, in that order; each starts listening
    // and sends its first status request from its own initialiser, so the phone hears deck 1,
    // deck 2, then the mixer.
    VXAWModel();
    ~VXAWModel();
    VXAWModel(const VXAWModel&) = delete;
    VXAWModel& operator=(const VXAWModel&) = delete;

    // The deck with 1-based `number`, or nothing for 0, negative numbers and numbers past the
    // last deck.
    std::shared_ptr<VXAWTurntable> turntable(std::int64_t number) const;

    const std::vector<std::shared_ptr<VXAWTurntable>>& turntables() const { return m_turntables; }
    void setTurntables(std::vector<std::shared_ptr<VXAWTurntable>> turntables) { m_turntables = std::move(turntables); }
    const std::shared_ptr<VXAWTurntable>& turntable1() const { return m_turntable1; }
    void setTurntable1(std::shared_ptr<VXAWTurntable> turntable) { m_turntable1 = std::move(turntable); }
    const std::shared_ptr<VXAWTurntable>& turntable2() const { return m_turntable2; }
    void setTurntable2(std::shared_ptr<VXAWTurntable> turntable) { m_turntable2 = std::move(turntable); }
    const std::shared_ptr<VXAWMixer>& mixer() const { return m_mixer; }
    void setMixer(std::shared_ptr<VXAWMixer> mixer) { m_mixer = std::move(mixer); }
    const std::shared_ptr<VXAWLibrary>& library() const { return m_library; }
    void setLibrary(std::shared_ptr<VXAWLibrary> library) { m_library = std::move(library); }

    // Drops the shared instance; used when a new environment is installed.
    static void forgetSharedModel();

private:
    std::vector<std::shared_ptr<VXAWTurntable>> m_turntables;
    std::shared_ptr<VXAWTurntable> m_turntable1;
    std::shared_ptr<VXAWTurntable> m_turntable2;
    std::shared_ptr<VXAWMixer> m_mixer;
    std::shared_ptr<VXAWLibrary> m_library;
};

} // namespace vexo::model
