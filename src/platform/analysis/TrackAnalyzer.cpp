#include "platform/analysis/TrackAnalyzer.h"

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "platform/analysis/HalfBandDecimator.h"
#include "platform/analysis/KeyDetector.h"
#include "platform/analysis/LoudnessMeter.h"
#include "platform/analysis/TempoDetector.h"
#include "platform/audio/AudioFormat.h"
#include "platform/audio/Decoder.h"

namespace vexo::analysis {
namespace {

constexpr int kFallbackSampleRate = 44100;
constexpr std::size_t kBlockFrames = 4096;
// Below this peak (about -90 dBFS) a song counts as silent.
constexpr double kSilentPeak = 3e-5;

// The rates the detectors take as they come: the key detector wants 22050 or 24000 Hz.
bool analysedRate(int sampleRate) {
    return sampleRate == 44100 || sampleRate == 48000 || sampleRate == 22050 || sampleRate == 24000;
}

bool halvedForKey(int sampleRate) {
    return sampleRate > 24000;
}

// A song that plays but lacks what is measured; the words are stored as the reason.
Error lacking(std::string what) {
    return Error(ErrorKind::Unsupported, std::move(what));
}

Error tooLong() {
    return Error(ErrorKind::TooLarge, "longer than 2 h");
}

// Everything one pass over a song feeds, block by block.
class Pipeline {
public:
    explicit Pipeline(int sampleRate)
        : m_sampleRate(sampleRate),
          m_halve(halvedForKey(sampleRate)),
          m_loudness(sampleRate),
          m_key(m_halve ? sampleRate / 2 : sampleRate),
          m_tempo(m_halve ? sampleRate / 4.0 : sampleRate / 2.0) {
        m_mono.reserve(kBlockFrames);
    }

    void add(const float* stereo, std::size_t frames) {
        m_loudness.add(stereo, frames);
        m_mono.clear();
        for (std::size_t i = 0; i < frames; ++i) {
            const float sample = 0.5f * (stereo[2 * i] + stereo[2 * i + 1]);
            m_peak = std::fmax(m_peak, std::fabs(sample));
            m_mono.push_back(sample);
        }
        const std::vector<float>* keyInput = &m_mono;
        if (m_halve) {
            m_half.clear();
            m_toHalf.process(m_mono.data(), m_mono.size(), m_half);
            keyInput = &m_half;
        }
        m_key.add(keyInput->data(), keyInput->size());
        m_quarter.clear();
        m_toQuarter.process(keyInput->data(), keyInput->size(), m_quarter);
        m_tempo.add(m_quarter.data(), m_quarter.size());
        m_frames += frames;
    }

    [[nodiscard]] double seconds() const { return static_cast<double>(m_frames) / m_sampleRate; }

    TrackAnalysis finish(std::optional<Error> failure = std::nullopt) {
        TrackAnalysis result;
        result.durationSeconds = seconds();
        result.failure = std::move(failure);
        const LoudnessMeter::Result loudness = m_loudness.result();
        result.loudnessLUFS = loudness.integratedLUFS;
        result.truePeakDBTP = loudness.truePeakDBTP;
        if (result.failure)
            return result;
        if (m_peak < kSilentPeak || !loudness.integratedLUFS) {
            result.failure = lacking("silent");
            return result;
        }
        if (result.durationSeconds < kShortestAnalysedSeconds) {
            result.failure = lacking("shorter than 5 s");
            return result;
        }
        if (const auto tempo = m_tempo.finish()) {
            result.beatsPerMinute = tempo->beatsPerMinute;
            result.firstBeatSeconds = tempo->firstBeatSeconds;
        }
        result.key = m_key.finish();
        if (!result.beatsPerMinute && !result.key)
            result.failure = lacking("no beat and no key found");
        else if (!result.beatsPerMinute)
            result.failure = lacking("no steady beat found");
        else if (!result.key)
            result.failure = lacking("no key found");
        return result;
    }

private:
    double m_sampleRate;
    bool m_halve;
    LoudnessMeter m_loudness;
    KeyDetector m_key;
    TempoDetector m_tempo;
    HalfBandDecimator m_toHalf;
    HalfBandDecimator m_toQuarter;
    std::vector<float> m_mono;
    std::vector<float> m_half;
    std::vector<float> m_quarter;
    float m_peak = 0;
    std::size_t m_frames = 0;
};

TrackAnalysis failed(Error why) {
    TrackAnalysis result;
    result.failure = std::move(why);
    return result;
}

} // namespace

TrackAnalysis TrackAnalyzer::analyzeFile(const std::filesystem::path& path, const std::atomic<bool>* cancel) {
    auto opened = audio::Decoder::open(path, audio::Decoder::kSourceSampleRate);
    if (opened && !analysedRate((*opened)->sampleRate()))
        opened = audio::Decoder::open(path, kFallbackSampleRate);
    if (!opened)
        return failed(std::move(opened).error());
    const std::unique_ptr<audio::Decoder> decoder = std::move(opened).value();
    const int sampleRate = decoder->sampleRate();
    const auto longest = static_cast<std::int64_t>(kLongestAnalysedSeconds * sampleRate);
    if (decoder->estimatedFrames() > longest) {
        TrackAnalysis result = failed(tooLong());
        result.durationSeconds = static_cast<double>(decoder->estimatedFrames()) / sampleRate;
        return result;
    }
    Pipeline pipeline(sampleRate);
    std::vector<float> block(kBlockFrames * audio::kChannels);
    std::int64_t decoded = 0;
    for (;;) {
        if (cancel != nullptr && cancel->load(std::memory_order_relaxed))
            return pipeline.finish(Error(ErrorKind::Cancelled, "cancelled"));
        const std::size_t frames = decoder->read(block.data(), kBlockFrames);
        if (frames == 0)
            break;
        decoded += static_cast<std::int64_t>(frames);
        if (decoded > longest)
            return pipeline.finish(tooLong());
        pipeline.add(block.data(), frames);
    }
    // A file that breaks off part-way is analysed as far as it plays, as the engine plays it.
    return pipeline.finish();
}

TrackAnalysis TrackAnalyzer::analyzeFrames(const float* stereoFrames, std::size_t frames, int sampleRate) {
    Pipeline pipeline(sampleRate);
    for (std::size_t at = 0; at < frames; at += kBlockFrames) {
        const std::size_t count = std::min(kBlockFrames, frames - at);
        pipeline.add(stereoFrames + at * audio::kChannels, count);
    }
    return pipeline.finish();
}

} // namespace vexo::analysis
