#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The musical key of a whole song, from the Queen Mary key detector (libqm-dsp's GetKeyMode:
// a constant-Q chromagram, 36 bins an octave, correlated with its major and minor key
// profiles). Four such detectors read the song in blocks of about 1.5 s, started a quarter
// block apart, because each hears little more than the middle of its block in the octaves of
// a melody. Each key scores the mean of the strengths the detectors give it block by block,
// plus the correlation of the song's whole pitch-class profile (the chromagram summed over
// the song) with Krumhansl and Kessler's probe-tone profiles; the highest wins. The first
// alone takes a major melody for its parallel minor now and then, the second takes minor
// chord progressions (i iv V i) for their parallel major; together they agree with the
// test songs far more often than either.
//
// It takes a mono stream at half the decoder's rate (22050 or 24000 Hz) and tells the Queen
// Mary code it runs at twice that: every frequency then reads an octave high, which leaves
// pitch classes alone and places its analysed range (C3 to C7 as it believes) on C2 to C6,
// where the bass and chords that carry a key lie, at half the cost.
namespace vexo::analysis {

class KeyDetector {
public:
    explicit KeyDetector(int sampleRate);
    ~KeyDetector();
    KeyDetector(const KeyDetector&) = delete;
    KeyDetector& operator=(const KeyDetector&) = delete;

    void add(const float* samples, std::size_t count);

    // Camelot notation ("8A"); nothing when fewer than two blocks (about 3 s) arrived or every
    // key scored the same (silence, noise without pitch).
    [[nodiscard]] std::optional<std::string> finish();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace vexo::analysis
