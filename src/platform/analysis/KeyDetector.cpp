#include "platform/analysis/KeyDetector.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <dsp/keydetection/GetKeyMode.h>

#include "platform/media/CamelotKey.h"

namespace vexo::analysis {
namespace {

// Concert pitch, and the Queen Mary key detector's own defaults for its smoothing (in blocks).
constexpr float kTuningHz = 440.0f;
constexpr double kChromaAverage = 10;
constexpr double kMedianAverage = 10;
constexpr int kKeys = 24;

// Krumhansl and Kessler's probe-tone ratings of the twelve degrees in a major and a minor key.
constexpr std::array<double, 12> kMajorProfile = {6.35, 2.23, 3.48, 2.33, 4.38, 4.09, 2.52, 5.19, 2.39, 3.66, 2.29, 2.88};
constexpr std::array<double, 12> kMinorProfile = {6.33, 2.68, 3.52, 5.38, 2.60, 3.53, 2.54, 4.75, 3.98, 2.69, 3.34, 3.17};

double correlation(const std::array<double, 12>& chroma, const std::array<double, 12>& profile, int tonic) {
    double meanChroma = 0, meanProfile = 0;
    for (int i = 0; i < 12; ++i) {
        meanChroma += chroma[static_cast<std::size_t>(i)] / 12;
        meanProfile += profile[static_cast<std::size_t>(i)] / 12;
    }
    double cross = 0, chromaSquares = 0, profileSquares = 0;
    for (int pitchClass = 0; pitchClass < 12; ++pitchClass) {
        const double c = chroma[static_cast<std::size_t>(pitchClass)] - meanChroma;
        const double p = profile[static_cast<std::size_t>((pitchClass - tonic + 12) % 12)] - meanProfile;
        cross += c * p;
        chromaSquares += c * c;
        profileSquares += p * p;
    }
    return chromaSquares > 0 ? cross / std::sqrt(chromaSquares * profileSquares) : 0;
}

// C major ... B major, then C minor ... B minor.
std::vector<double> profileCorrelations(const std::array<double, 12>& chroma) {
    std::vector<double> scores(kKeys);
    for (int tonic = 0; tonic < 12; ++tonic) {
        scores[static_cast<std::size_t>(tonic)] = correlation(chroma, kMajorProfile, tonic);
        scores[static_cast<std::size_t>(tonic + 12)] = correlation(chroma, kMinorProfile, tonic);
    }
    return scores;
}

} // namespace

struct KeyDetector::State {
    explicit State(int sampleRate) : detector(sampleRate * 2, kTuningHz, kChromaAverage, kMedianAverage) {
        block.reserve(detector.getBlockSize());
    }
    GetKeyMode detector;
    std::vector<double> block;
    std::vector<double> strengths = std::vector<double>(kKeys, 0.0);
    std::array<double, 12> pitchClasses{};
    int blocks = 0;
};

KeyDetector::KeyDetector(int sampleRate) : m_state(std::make_unique<State>(sampleRate)) {}

KeyDetector::~KeyDetector() = default;

void KeyDetector::add(const float* samples, std::size_t count) {
    State& state = *m_state;
    const std::size_t blockSize = state.detector.getBlockSize();
    while (count > 0) {
        const std::size_t taken = std::min(count, blockSize - state.block.size());
        state.block.insert(state.block.end(), samples, samples + taken);
        samples += taken;
        count -= taken;
        if (state.block.size() < blockSize)
            break;
        state.detector.process(state.block.data());
        const double* chroma = state.detector.getChroma();
        for (unsigned bin = 0; bin < state.detector.getChromaSize() && bin < 36; ++bin)
            state.pitchClasses[bin / 3] += chroma[bin];
        const double* strengths = state.detector.getKeyStrengths();
        for (int key = 0; key < kKeys; ++key)
            state.strengths[static_cast<std::size_t>(key)] += strengths[key];
        ++state.blocks;
        state.block.clear();
    }
}

std::optional<std::string> KeyDetector::finish() {
    const State& state = *m_state;
    if (state.blocks < 2)
        return std::nullopt;
    std::vector<double> scores = profileCorrelations(state.pitchClasses);
    for (std::size_t key = 0; key < scores.size(); ++key)
        scores[key] += state.strengths[key] / state.blocks;
    const auto best = std::max_element(scores.begin(), scores.end());
    const auto worst = std::min_element(scores.begin(), scores.end());
    if (!(*best > *worst))
        return std::nullopt;
    // The strengths run C major ... B major, then C minor ... B minor.
    const int index = static_cast<int>(best - scores.begin());
    return media::camelotKey(index % 12, index >= 12);
}

} // namespace vexo::analysis
