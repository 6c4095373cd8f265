#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Songs made on the spot with known tempo, first beat, key and level, for the analysis tests,
// the accuracy report and the benchmark. Every function returns interleaved stereo float
// frames (both channels equal) and gives the same samples for the same recipe.
namespace vexo::analysis::testing {

enum class Rhythm {
    // A click on every beat, the bar's first louder; with swing, soft clicks between.
    Clicks,
    // Kick on every beat, snare on two and four, hi-hat between the beats.
    FourOnTheFloor,
    // Kick on one and three, snare on two and four, hi-hat on every eighth.
    Backbeat,
    // Kick on one and on the "and" of three, snare on two and four, hi-hat on every eighth
    // (drum and bass, breakbeats).
    Breakbeat,
};

struct BeatRecipe {
    double beatsPerMinute = 120;
    Rhythm rhythm = Rhythm::FourOnTheFloor;
    // Where the eighth between two beats falls, as a share of the beat: 0.5 straight, 2/3
    // swung (a triplet feel).
    double swing = 0.5;
    // Silence before the first beat.
    double firstBeatSeconds = 0;
    // Clicks only: a click of this gain halfway between the beats (the beats' are 0.55 and
    // 0.8), for songs whose off-beats are neither silent nor beats.
    double offBeatClickGain = 0;
    // A chord pad in A minor under the drums.
    bool withChords = false;
    double seconds = 20;
    int sampleRate = 22050;
};

struct KeyRecipe {
    // 0 = C ... 11 = B.
    int pitchClass = 0;
    bool minor = false;
    // Chords (I IV V I, or i iv V i) with a bass note, or a melody alone over its tonic's
    // drone.
    bool melody = false;
    double seconds = 12;
    int sampleRate = 22050;
};

[[nodiscard]] std::vector<float> beatSong(const BeatRecipe& recipe);
[[nodiscard]] std::vector<float> keySong(const KeyRecipe& recipe);
// A steady sine of `peak` amplitude; its integrated loudness is 20 log10(peak) LUFS at 997 Hz.
[[nodiscard]] std::vector<float> toneSong(double frequency, double peak, double seconds, int sampleRate = 22050,
                                          double phase = 0);

[[nodiscard]] std::string rhythmName(Rhythm rhythm);

} // namespace vexo::analysis::testing
