#include "SongSynthesizer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>

namespace vexo::library {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRate = SongSynthesizer::kSampleRate;

// A sine table with linear interpolation: the loops below call it millions of times.
class SineTable {
public:
    SineTable() {
        for (std::size_t i = 0; i <= kSize; ++i)
            m_values[i] = static_cast<float>(std::sin(2 * kPi * static_cast<double>(i) / kSize));
    }

    // `phase` in turns, any value.
    [[nodiscard]] double operator()(double phase) const {
        const double position = (phase - std::floor(phase)) * kSize;
        const auto index = static_cast<std::size_t>(position);
        const double fraction = position - static_cast<double>(index);
        return m_values[index] + (m_values[index + 1] - m_values[index]) * fraction;
    }

private:
    static constexpr std::size_t kSize = 4096;
    std::array<float, kSize + 1> m_values{};
};

const SineTable& sine() {
    static const SineTable table;
    return table;
}

double midiFrequency(int note) {
    return 440.0 * std::pow(2.0, (note - 69) / 12.0);
}

// White noise in [-1, 1] from a fixed seed.
class Noise {
public:
    explicit Noise(std::uint32_t seed)
        : m_state(seed == 0 ? 0x9E3779B9u : seed) {}
    double next() {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 17;
        m_state ^= m_state << 5;
        return static_cast<double>(m_state) / 2147483647.5 - 1.0;
    }

private:
    std::uint32_t m_state;
};

struct Chord {
    int offset; // semitones above the key's root
    bool minor;
};

// i-iv-v-i in minor keys, I-IV-V-I in major ones: the tonic chord twice a loop, so that the
// key is heard (and analysed) as the one tagged. Loops that share their chords with the
// relative key (i-VI-III-VII is I-V-vi-IV of the relative major) leave it to guesswork.
constexpr std::array<Chord, 4> kMinorLoop = {{{0, true}, {5, true}, {7, true}, {0, true}}};
constexpr std::array<Chord, 4> kMajorLoop = {{{0, false}, {5, false}, {7, false}, {0, false}}};

// What a bar plays; the intro has no chords, the ending no drums.
enum Layer : unsigned { kDrums = 1, kBass = 2, kChords = 4 };

struct Timbre {
    double secondHarmonic;
    double thirdHarmonic;
    bool arpeggio;
    bool hiHat;
};

Timbre timbreFor(std::uint32_t seed) {
    return {static_cast<double>(seed % 7) / 14.0, static_cast<double>((seed >> 3) % 5) / 12.0, ((seed >> 7) & 1u) != 0,
            ((seed >> 9) % 4) != 0};
}

// One bar of `length` samples; everything it plays decays within the bar, so bars can be
// laid end to end.
std::vector<std::int16_t> renderBar(const SongSynthesizer::Sound& sound, const Timbre& timbre, const Chord& chord,
                                    unsigned layers, std::size_t length, std::uint32_t seed) {
    const SineTable& table = sine();
    std::vector<double> mix(length, 0.0);
    const double beat = static_cast<double>(length) / 4;
    const int root = 48 + (sound.keyRoot + chord.offset) % 12;
    const std::array<int, 3> notes = {root, root + (chord.minor ? 3 : 4), root + 7};

    if (layers & kChords) {
        const double attack = 0.04 * kRate;
        const double release = 0.12 * kRate;
        for (std::size_t voice = 0; voice < notes.size(); ++voice) {
            const double frequency = midiFrequency(notes[voice] + 12);
            // An arpeggio plays each chord note in turn on the eighths; a pad holds all three.
            const double start = timbre.arpeggio ? static_cast<double>(voice) * beat / 2 : 0;
            const double step = timbre.arpeggio ? beat * 1.5 : static_cast<double>(length);
            for (double noteStart = start; noteStart < static_cast<double>(length); noteStart += step) {
                const auto from = static_cast<std::size_t>(noteStart);
                const auto to = std::min(length, static_cast<std::size_t>(noteStart + (timbre.arpeggio ? beat : step)));
                const double span = static_cast<double>(to - from);
                for (std::size_t i = from; i < to; ++i) {
                    const double t = static_cast<double>(i - from);
                    const double envelope = std::min({1.0, t / attack, (span - t) / release});
                    const double phase = frequency * static_cast<double>(i) / kRate;
                    const double tone = table(phase) + timbre.secondHarmonic * table(2 * phase) +
                                        timbre.thirdHarmonic * table(3 * phase);
                    mix[i] += 0.11 * envelope * tone;
                }
            }
        }
    }
    if (layers & kBass) {
        // Kept well under the kick: the two together drive the tanh below into distortion,
        // whose fifth harmonic of a low bass note is its major third and turns minor to major.
        const double frequency = midiFrequency(root - 12);
        for (int b = 0; b < 4; ++b) {
            const auto from = static_cast<std::size_t>(b * beat);
            const auto to = std::min(length, static_cast<std::size_t>(b * beat + beat * 0.8));
            for (std::size_t i = from; i < to; ++i) {
                const double t = static_cast<double>(i - from) / kRate;
                const double envelope = std::exp(-t * 6) * std::min(1.0, t * 400);
                mix[i] += 0.2 * envelope * table(frequency * static_cast<double>(i) / kRate);
            }
        }
    }
    if (layers & kDrums) {
        Noise noise(seed);
        for (int b = 0; b < 4; ++b) {
            const auto from = static_cast<std::size_t>(b * beat);
            // Kick: a sine falling from 130 to 45 Hz.
            double phase = 0;
            for (std::size_t i = from; i < std::min(length, from + static_cast<std::size_t>(0.25 * kRate)); ++i) {
                const double t = static_cast<double>(i - from) / kRate;
                phase += (45 + 85 * std::exp(-t * 30)) / kRate;
                mix[i] += 0.55 * std::exp(-t * 14) * table(phase);
            }
            // Snare on two and four: a burst of noise over a low tone.
            if (b % 2 == 1) {
                for (std::size_t i = from; i < std::min(length, from + static_cast<std::size_t>(0.18 * kRate)); ++i) {
                    const double t = static_cast<double>(i - from) / kRate;
                    mix[i] += std::exp(-t * 25) * (0.18 * noise.next() + 0.12 * table(185 * t));
                }
            }
            // Hi-hat on the off-beat: noise with its low end taken off.
            if (timbre.hiHat) {
                const auto off = static_cast<std::size_t>(b * beat + beat / 2);
                double previous = 0;
                for (std::size_t i = off; i < std::min(length, off + static_cast<std::size_t>(0.05 * kRate)); ++i) {
                    const double t = static_cast<double>(i - off) / kRate;
                    const double value = noise.next();
                    mix[i] += 0.09 * std::exp(-t * 70) * (value - previous);
                    previous = value;
                }
            }
        }
    }
    std::vector<std::int16_t> bar(length);
    for (std::size_t i = 0; i < length; ++i)
        bar[i] = static_cast<std::int16_t>(std::lround(std::tanh(mix[i]) * 30000));
    return bar;
}

} // namespace

std::vector<std::int16_t> SongSynthesizer::render(const Sound& sound) {
    const int tempo = std::max(40, sound.beatsPerMinute);
    const auto barLength = static_cast<std::size_t>(std::lround(4 * kRate * 60 / tempo));
    const double barSeconds = static_cast<double>(barLength) / kRate;
    auto bars = static_cast<std::size_t>(std::max(1L, std::lround(sound.seconds / barSeconds)));
    while (static_cast<double>(bars) * barSeconds < kShortestSeconds)
        ++bars;
    while (bars > 1 && static_cast<double>(bars) * barSeconds > kLongestSeconds)
        --bars;

    const Timbre timbre = timbreFor(sound.seed);
    const auto& loop = sound.minor ? kMinorLoop : kMajorLoop;
    // The loop repeats, so each distinct bar is made once and copied.
    std::map<std::pair<std::size_t, unsigned>, std::vector<std::int16_t>> made;
    std::vector<std::int16_t> samples;
    samples.reserve(bars * barLength);
    for (std::size_t bar = 0; bar < bars; ++bar) {
        unsigned layers = kDrums | kBass | kChords;
        if (bar < 2 && bars > 6)
            layers = kDrums | kBass;
        else if (bar + 2 >= bars && bars > 6)
            layers = kBass | kChords;
        const std::size_t chord = bar % loop.size();
        auto found = made.find({chord, layers});
        if (found == made.end())
            found = made.emplace(std::pair{chord, layers},
                                 renderBar(sound, timbre, loop[chord], layers, barLength, sound.seed + chord))
                        .first;
        samples.insert(samples.end(), found->second.begin(), found->second.end());
    }
    // Fades keep the first and last sample at silence, so there is no click.
    const std::size_t fadeIn = std::min(samples.size(), static_cast<std::size_t>(0.02 * kRate));
    const std::size_t fadeOut = std::min(samples.size(), static_cast<std::size_t>(1.5 * kRate));
    for (std::size_t i = 0; i < fadeIn; ++i)
        samples[i] = static_cast<std::int16_t>(samples[i] * static_cast<double>(i) / static_cast<double>(fadeIn));
    for (std::size_t i = 0; i < fadeOut; ++i) {
        auto& sample = samples[samples.size() - 1 - i];
        sample = static_cast<std::int16_t>(sample * static_cast<double>(i) / static_cast<double>(fadeOut));
    }
    return samples;
}

} // namespace vexo::library
