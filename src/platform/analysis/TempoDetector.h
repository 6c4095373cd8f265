#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

// The tempo and constant-tempo beat grid of a whole song, from a mono stream at about 11 kHz
// (a quarter or half of the decoder's rate).
//
// How:
//  1. Onsets: the Queen Mary complex spectral-difference detection function (libqm-dsp's
//     DetectionFunction), one value per 128 samples (11.6 ms at 11025 Hz).
//  2. Beat period: the Queen Mary tempo tracker (TempoTrackV2: comb-filtered autocorrelation
//     of that function, Viterbi-smoothed over the song); its median period is the first guess.
//  3. Octave errors: trackers agree on the pulse but often lock to half or double the beat.
//     The tracker's period is only a first candidate; it, half and double it are scored by
//     how much onset strength a grid at that period gathers at its best phase (a fold of the
//     onset function, like an autocorrelation at that lag, over 20 s in the song's middle,
//     the period refined within 3 %). A faster level wins when the beats it adds between the
//     slower one's carry at least 30 % of their strength, a slower one otherwise: one bar
//     both ways, so that the tracker's guess does not decide between two levels. Tempos
//     outside 70-180 BPM, the preferred range of dance music, need a clearer win (the added
//     beats at 70 %, or under 10 %).
//  4. Grid: the onset peaks nearest to the chosen grid, fitted by least squares (tempo and
//     phase) over a span that doubles until it covers the song, so that a small error of the
//     period cannot drift the grid off the beats of a long song. The first beat is the first
//     grid position that has an onset on it.
//
// One thread at a time.
namespace vexo::analysis {

class TempoDetector {
public:
    struct Estimate {
        double beatsPerMinute = 0;
        double firstBeatSeconds = 0;
    };

    explicit TempoDetector(double sampleRate);
    ~TempoDetector();
    TempoDetector(const TempoDetector&) = delete;
    TempoDetector& operator=(const TempoDetector&) = delete;

    void add(const float* samples, std::size_t count);

    // Nothing when fewer than about 5 s arrived or no steady pulse was found (silence, a
    // single sustained sound).
    [[nodiscard]] std::optional<Estimate> finish();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace vexo::analysis
