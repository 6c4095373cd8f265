#include "platform/analysis/AnalysisCorpus.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace vexo::analysis::testing {
namespace {

constexpr double kTwoPi = 2 * std::numbers::pi;

// A fixed noise source, so the same recipe gives the same samples.
class Noise {
public:
    explicit Noise(std::uint32_t seed)
        : m_state(seed) {}
    double next() {
        m_state = m_state * 1664525u + 1013904223u;
        return static_cast<double>(m_state >> 8) / static_cast<double>(1u << 23) - 1.0;
    }

private:
    std::uint32_t m_state;
};

double noteHz(int midi) {
    return 440.0 * std::pow(2.0, (midi - 69) / 12.0);
}

void addKick(std::vector<double>& out, double at, int rate, double gain) {
    const auto start = static_cast<std::size_t>(std::llround(at * rate));
    double phase = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(0.25 * rate) && start + i < out.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        phase += kTwoPi * (45 + 110 * std::exp(-t * 30)) / rate;
        out[start + i] += gain * std::exp(-t * 14) * std::sin(phase);
    }
}

void addSnare(std::vector<double>& out, double at, int rate, double gain, Noise& noise) {
    const auto start = static_cast<std::size_t>(std::llround(at * rate));
    for (std::size_t i = 0; i < static_cast<std::size_t>(0.2 * rate) && start + i < out.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        out[start + i] += gain * std::exp(-t * 25) * (0.7 * noise.next() + 0.5 * std::sin(kTwoPi * 190 * t));
    }
}

void addHat(std::vector<double>& out, double at, int rate, double gain, Noise& noise) {
    const auto start = static_cast<std::size_t>(std::llround(at * rate));
    double previous = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(0.05 * rate) && start + i < out.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        const double white = noise.next();
        out[start + i] += gain * std::exp(-t * 90) * (white - previous);
        previous = white;
    }
}

void addClick(std::vector<double>& out, double at, int rate, double gain) {
    const auto start = static_cast<std::size_t>(std::llround(at * rate));
    for (std::size_t i = 0; i < static_cast<std::size_t>(0.02 * rate) && start + i < out.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        out[start + i] += gain * std::exp(-t * 200) * std::sin(kTwoPi * 1000 * t);
    }
}

// A tone of a few harmonics with a soft attack and release over [from, to). Each harmonic
// turns as a unit phasor, far cheaper than a sine a sample.
void addNote(std::vector<double>& out, int midi, double from, double to, int rate, double gain) {
    const double frequency = noteHz(midi);
    const auto start = static_cast<std::size_t>(from * rate);
    const auto end = std::min(out.size(), static_cast<std::size_t>(to * rate));
    const double length = to - from;
    constexpr std::size_t kHarmonics = 4;
    // Each harmonic's phasor (re, im) and its turn per sample (cos, sin).
    std::array<double, kHarmonics> re{}, im{}, turnRe{}, turnIm{};
    for (std::size_t h = 0; h < kHarmonics; ++h) {
        re[h] = 1;
        turnRe[h] = std::cos(kTwoPi * frequency * static_cast<double>(h + 1) / rate);
        turnIm[h] = std::sin(kTwoPi * frequency * static_cast<double>(h + 1) / rate);
    }
    for (std::size_t i = start; i < end; ++i) {
        const double t = static_cast<double>(i - start) / rate;
        const double envelope = std::min({1.0, t / 0.02, (length - t) / 0.05});
        double sample = 0;
        for (std::size_t h = 0; h < kHarmonics; ++h) {
            sample += im[h] / static_cast<double>(h + 1);
            const double nextRe = re[h] * turnRe[h] - im[h] * turnIm[h];
            im[h] = re[h] * turnIm[h] + im[h] * turnRe[h];
            re[h] = nextRe;
        }
        out[i] += gain * std::max(0.0, envelope) * sample;
    }
}

std::vector<float> stereo(const std::vector<double>& mono) {
    std::vector<float> frames(mono.size() * 2);
    for (std::size_t i = 0; i < mono.size(); ++i)
        frames[2 * i] = frames[2 * i + 1] = static_cast<float>(mono[i]);
    return frames;
}

} // namespace

std::string rhythmName(Rhythm rhythm) {
    switch (rhythm) {
    case Rhythm::Clicks:
        return "clicks";
    case Rhythm::FourOnTheFloor:
        return "four-on-the-floor";
    case Rhythm::Backbeat:
        return "backbeat";
    case Rhythm::Breakbeat:
        return "breakbeat";
    }
    return {};
}

std::vector<float> beatSong(const BeatRecipe& recipe) {
    const int rate = recipe.sampleRate;
    std::vector<double> mono(static_cast<std::size_t>(recipe.seconds * rate), 0.0);
    Noise noise(static_cast<std::uint32_t>(recipe.beatsPerMinute * 100) + static_cast<std::uint32_t>(recipe.rhythm));
    const double beat = 60.0 / recipe.beatsPerMinute;
    for (int n = 0;; ++n) {
        const double at = recipe.firstBeatSeconds + n * beat;
        if (at >= recipe.seconds)
            break;
        const double between = at + recipe.swing * beat;
        const int inBar = n % 4;
        switch (recipe.rhythm) {
        case Rhythm::Clicks:
            addClick(mono, at, rate, inBar == 0 ? 0.8 : 0.55);
            if (recipe.swing != 0.5)
                addClick(mono, between, rate, 0.15);
            if (recipe.offBeatClickGain > 0)
                addClick(mono, at + 0.5 * beat, rate, recipe.offBeatClickGain);
            break;
        case Rhythm::FourOnTheFloor:
            addKick(mono, at, rate, 0.7);
            if (inBar % 2 == 1)
                addSnare(mono, at, rate, 0.4, noise);
            addHat(mono, between, rate, 0.15, noise);
            break;
        case Rhythm::Backbeat:
        case Rhythm::Breakbeat:
            if (inBar == 0 || (inBar == 2 && recipe.rhythm == Rhythm::Backbeat))
                addKick(mono, at, rate, 0.7);
            if (inBar == 2 && recipe.rhythm == Rhythm::Breakbeat)
                addKick(mono, between, rate, 0.5);
            if (inBar % 2 == 1)
                addSnare(mono, at, rate, 0.5, noise);
            addHat(mono, at, rate, 0.12, noise);
            addHat(mono, between, rate, 0.08, noise);
            break;
        }
    }
    if (recipe.withChords) {
        // Am F C G, a chord a bar.
        static constexpr std::array<std::array<int, 3>, 4> kChords = {
            {{57, 60, 64}, {53, 57, 60}, {48, 52, 55}, {55, 59, 62}}};
        const double bar = 4 * beat;
        for (int n = 0; recipe.firstBeatSeconds + n * bar < recipe.seconds; ++n) {
            const double from = recipe.firstBeatSeconds + n * bar;
            for (const int note : kChords[static_cast<std::size_t>(n % 4)])
                addNote(mono, note, from, std::min(recipe.seconds, from + bar), rate, 0.04);
        }
    }
    return stereo(mono);
}

std::vector<float> keySong(const KeyRecipe& recipe) {
    const int rate = recipe.sampleRate;
    std::vector<double> mono(static_cast<std::size_t>(recipe.seconds * rate), 0.0);
    const int tonic = 48 + recipe.pitchClass; // C3 ... B3
    const int third = recipe.minor ? 3 : 4;
    if (!recipe.melody) {
        // I IV V I, or i iv V i (the harmonic minor's major dominant), 1.5 s a chord.
        const std::array<std::array<int, 3>, 4> chords = {
            {{0, third, 7}, {5, 5 + third, 12}, {7, 11, 14}, {0, third, 7}}};
        constexpr double kChordSeconds = 1.5;
        for (int n = 0; n * kChordSeconds < recipe.seconds; ++n) {
            const auto& chord = chords[static_cast<std::size_t>(n % 4)];
            const double from = n * kChordSeconds;
            const double to = std::min(recipe.seconds, from + kChordSeconds);
            addNote(mono, tonic - 12 + chord[0], from, to, rate, 0.12);
            for (const int interval : chord)
                addNote(mono, tonic + interval, from, to, rate, 0.08);
        }
    } else {
        // A tune on the scale that starts and ends on the tonic, over a quiet tonic drone.
        const std::array<int, 7> scale =
            recipe.minor ? std::array<int, 7>{0, 2, 3, 5, 7, 8, 11} : std::array<int, 7>{0, 2, 4, 5, 7, 9, 11};
        static constexpr std::array<int, 16> kTune = {0, 2, 4, 7, 4, 3, 2, 1, 0, 4, 5, 4, 6, 7, 4, 0};
        constexpr double kNoteSeconds = 0.375;
        for (int n = 0; n * kNoteSeconds < recipe.seconds; ++n) {
            const int degree = kTune[static_cast<std::size_t>(n % 16)];
            const int interval = degree >= 7 ? 12 + scale[static_cast<std::size_t>(degree - 7)]
                                             : scale[static_cast<std::size_t>(degree)];
            const double from = n * kNoteSeconds;
            addNote(mono, tonic + 12 + interval, from, std::min(recipe.seconds, from + kNoteSeconds), rate, 0.15);
        }
        addNote(mono, tonic - 12, 0, recipe.seconds, rate, 0.05);
    }
    return stereo(mono);
}

std::vector<float> toneSong(double frequency, double peak, double seconds, int sampleRate, double phase) {
    std::vector<double> mono(static_cast<std::size_t>(seconds * sampleRate));
    for (std::size_t i = 0; i < mono.size(); ++i)
        mono[i] = peak * std::sin(kTwoPi * frequency * static_cast<double>(i) / sampleRate + phase);
    return stereo(mono);
}

} // namespace vexo::analysis::testing
