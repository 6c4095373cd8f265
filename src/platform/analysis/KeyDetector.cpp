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
constexpr std::array<double, 12> kMajorProfile = {6.35, 2.23, 3.48, 2.33, 4.38, 4.09,
                                                  2.52, 5.19, 2.39, 3.66, 2.29, 2.88};
constexpr std::array<double, 12> kMinorProfile = {6.33, 2.68, 3.52, 5.38, 2.60, 3.53,
                                                  2.54, 4.75, 3.98, 2.69, 3.34, 3.17};

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

// A Queen Mary detector reads each block through constant-Q kernels centred in it, and the
// kernels of the melody's octaves span only a tenth of the block (about 0.15 s of its 1.5 s):
// blocks laid end to end hear a tune's notes at the blocks' centres and miss those between,
// often the very thirds and sixths that tell major from minor. Detectors started a quarter
// block apart hear the centres in between.
constexpr int kStaggeredDetectors = 4;

// One Queen Mary detector, fed the stream from `delay` samples on in blocks laid end to end.
struct StaggeredDetector {
    StaggeredDetector(int sampleRate, int index)
        : detector(sampleRate * 2, kTuningHz, kChromaAverage, kMedianAverage),
          delay(detector.getBlockSize() * static_cast<std::size_t>(index) / kStaggeredDetectors) {
        block.reserve(detector.getBlockSize());
    }
    GetKeyMode detector;
    std::size_t delay;
    std::vector<double> block;
    int blocks = 0;
};

} // namespace

struct KeyDetector::State {
    explicit State(int sampleRate) {
        for (int index = 0; index < kStaggeredDetectors; ++index)
            detectors.push_back(std::make_unique<StaggeredDetector>(sampleRate, index));
    }

    void feed(StaggeredDetector& staggered, const float* samples, std::size_t count) {
        const std::size_t skipped = std::min(count, staggered.delay);
        staggered.delay -= skipped;
        samples += skipped;
        count -= skipped;
        const std::size_t blockSize = staggered.detector.getBlockSize();
        while (count > 0) {
            const std::size_t taken = std::min(count, blockSize - staggered.block.size());
            staggered.block.insert(staggered.block.end(), samples, samples + taken);
            samples += taken;
            count -= taken;
            if (staggered.block.size() < blockSize)
                break;
            staggered.detector.process(staggered.block.data());
            const double* chroma = staggered.detector.getChroma();
            for (unsigned bin = 0; bin < staggered.detector.getChromaSize() && bin < 36; ++bin)
                pitchClasses[bin / 3] += chroma[bin];
            const double* keyStrengths = staggered.detector.getKeyStrengths();
            for (int key = 0; key < kKeys; ++key)
                strengths[static_cast<std::size_t>(key)] += keyStrengths[key];
            ++staggered.blocks;
            ++blocks;
            staggered.block.clear();
        }
    }

    // GetKeyMode is not movable; its address must stay put.
    std::vector<std::unique_ptr<StaggeredDetector>> detectors;
    std::vector<double> strengths = std::vector<double>(kKeys, 0.0);
    std::array<double, 12> pitchClasses{};
    // Over all detectors.
    int blocks = 0;
};

KeyDetector::KeyDetector(int sampleRate)
    : m_state(std::make_unique<State>(sampleRate)) {}

KeyDetector::~KeyDetector() = default;

void KeyDetector::add(const float* samples, std::size_t count) {
    for (auto& staggered : m_state->detectors)
        m_state->feed(*staggered, samples, count);
}

std::optional<std::string> KeyDetector::finish() {
    const State& state = *m_state;
    if (state.detectors.front()->blocks < 2)
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
