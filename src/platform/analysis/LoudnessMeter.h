#pragma once

#include <cstddef>
#include <memory>
#include <optional>

// Integrated loudness (EBU R128 / ITU-R BS.1770, gated) and true peak (4x oversampled, as
// BS.1770 asks) of an interleaved stereo float stream, measured by libebur128. One thread at
// a time.
namespace vexo::analysis {

class LoudnessMeter {
public:
    struct Result {
        // LUFS; absent for a signal that stays below the absolute gate (-70 LUFS) throughout.
        std::optional<double> integratedLUFS;
        // dBTP; absent for digital silence.
        std::optional<double> truePeakDBTP;
    };

    explicit LoudnessMeter(int sampleRate);
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    void add(const float* stereoFrames, std::size_t frames);
    [[nodiscard]] Result result() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace vexo::analysis
