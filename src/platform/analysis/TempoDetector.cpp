#include "platform/analysis/TempoDetector.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <dsp/onsets/DetectionFunction.h>
#include <dsp/tempotracking/TempoTrackV2.h>

namespace vexo::analysis {
namespace {

// The detection function's hop and window, in samples: 11.6 ms and 23 ms at 11025 Hz, the
// time steps the tempo tracker's fixed windows were made for.
constexpr unsigned kStep = 128;
constexpr unsigned kFrame = 256;
// Where, in samples after the start of the hop that reports it, an onset lies: the function
// peaks in the hop whose window first holds the whole attack. Measured on clicks.
constexpr double kOnsetLatencySamples = 0;
// Silence put before the song, so that the detection function, which compares each hop with
// the two before, sees a beat on the very first sample.
constexpr std::size_t kLeadInSamples = 3 * kStep;
// The tempo tracker looks at 512 values at a time; shorter input is repeated up to that.
constexpr std::size_t kTrackerWindow = 512 + 2;
// The part of the song (in detection-function values, about 21 s) on which the metrical
// level is chosen.
constexpr std::size_t kLevelExcerpt = 1800;
constexpr double kSlowestBpm = 50;
constexpr double kFastestBpm = 220;
constexpr double kPreferredSlowestBpm = 70;
constexpr double kPreferredFastestBpm = 180;

struct Peak {
    double position = 0;
    double value = 0;
};

// The detection function less its mean over the surrounding half second, floored at 0: how
// much each hop stands out, whatever the music's density.
std::vector<double> onsetStrength(const std::vector<double>& df) {
    constexpr std::size_t kHalfWindow = 20;
    std::vector<double> sums(df.size() + 1, 0.0);
    for (std::size_t i = 0; i < df.size(); ++i)
        sums[i + 1] = sums[i] + df[i];
    std::vector<double> strength(df.size());
    for (std::size_t i = 0; i < df.size(); ++i) {
        const std::size_t from = i >= kHalfWindow ? i - kHalfWindow : 0;
        const std::size_t to = std::min(df.size(), i + kHalfWindow + 1);
        const double mean = (sums[to] - sums[from]) / static_cast<double>(to - from);
        strength[i] = std::max(0.0, df[i] - mean);
    }
    return strength;
}

std::vector<double> smoothed(const std::vector<double>& values) {
    static constexpr std::array<double, 5> kKernel = {1, 2, 3, 2, 1};
    std::vector<double> out(values.size(), 0.0);
    for (std::size_t i = 0; i < values.size(); ++i) {
        for (std::size_t k = 0; k < kKernel.size(); ++k) {
            const std::size_t at = i + k;
            if (at >= 2 && at - 2 < values.size())
                out[i] += kKernel[k] * values[at - 2] / 9.0;
        }
    }
    return out;
}

double valueAt(const std::vector<double>& values, double position) {
    if (position < 0 || position >= static_cast<double>(values.size() - 1))
        return 0;
    const auto index = static_cast<std::size_t>(position);
    const double fraction = position - static_cast<double>(index);
    return values[index] * (1 - fraction) + values[index + 1] * fraction;
}

struct Level {
    double period = 0;
    double phase = 0;
    double strength = 0;
};

// The mean strength a grid of `period` gathers in [begin, end) at its best phase, trying
// periods within 3 % finely enough that between two tries the grid's far end moves by at most
// half a hop (the smoothing of `strength` covers that).
Level levelStrength(const std::vector<double>& strength, double period, std::size_t begin, std::size_t end) {
    Level best;
    const double span = std::max(1.0, static_cast<double>(end - begin));
    const double ratioStep = 0.5 / span;
    for (double ratio = -0.03; ratio <= 0.03 + 1e-9; ratio += ratioStep) {
        const double candidate = period * (1 + ratio);
        for (double phase = 0; phase < candidate; phase += 0.5) {
            double sum = 0;
            int count = 0;
            for (double x = static_cast<double>(begin) + phase; x < static_cast<double>(end); x += candidate) {
                sum += valueAt(strength, x);
                ++count;
            }
            const double mean = count > 0 ? sum / count : 0;
            if (mean > best.strength)
                best = {candidate, static_cast<double>(begin) + phase, mean};
        }
    }
    return best;
}

std::vector<Peak> peaksOf(const std::vector<double>& strength) {
    std::vector<double> sorted = strength;
    const auto high = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() * 99 / 100);
    std::nth_element(sorted.begin(), high, sorted.end());
    const double threshold = 0.1 * *high;
    std::vector<Peak> peaks;
    // A song may start on its first beat: before the first value counts as nothing.
    for (std::size_t i = 0; i + 1 < strength.size(); ++i) {
        const double a = i > 0 ? strength[i - 1] : 0, b = strength[i], c = strength[i + 1];
        if (!(b > threshold && b > a && b >= c))
            continue;
        const double curvature = a - 2 * b + c;
        const double offset = curvature < 0 ? 0.5 * (a - c) / curvature : 0;
        peaks.push_back({static_cast<double>(i) + offset, b});
    }
    return peaks;
}

// The strongest peak within `tolerance` of `position`; nothing when none is.
const Peak* strongestNear(const std::vector<Peak>& peaks, double position, double tolerance) {
    auto it = std::lower_bound(peaks.begin(), peaks.end(), position - tolerance,
                               [](const Peak& peak, double at) { return peak.position < at; });
    const Peak* best = nullptr;
    for (; it != peaks.end() && it->position <= position + tolerance; ++it) {
        if (best == nullptr || it->value > best->value)
            best = &*it;
    }
    return best;
}

struct Grid {
    double anchor = 0;
    double period = 0;
    // The earliest beat index (from the anchor) that has an onset on it.
    long firstBeat = 0;
};

struct Match {
    long beat;
    double position;
    double value;
};

std::vector<Match> matchesOf(const std::vector<Peak>& peaks, const Grid& grid, long fromBeat, long toBeat) {
    std::vector<Match> matches;
    for (long k = fromBeat; k <= toBeat; ++k) {
        const double at = grid.anchor + static_cast<double>(k) * grid.period;
        if (const Peak* peak = strongestNear(peaks, at, 0.2 * grid.period))
            matches.push_back({k, peak->position, peak->value});
    }
    return matches;
}

// Least-squares line through the matches, ignoring those more than `limit` off `grid`.
bool fitLine(const std::vector<Match>& matches, Grid& grid, double limit) {
    double n = 0, sk = 0, sp = 0, skk = 0, skp = 0;
    for (const Match& match : matches) {
        const double predicted = grid.anchor + static_cast<double>(match.beat) * grid.period;
        if (std::abs(match.position - predicted) > limit)
            continue;
        const auto k = static_cast<double>(match.beat);
        n += 1;
        sk += k;
        sp += match.position;
        skk += k * k;
        skp += k * match.position;
    }
    const double variance = n * skk - sk * sk;
    if (n < 4 || variance <= 0)
        return false;
    grid.period = (n * skp - sk * sp) / variance;
    grid.anchor = (sp - grid.period * sk) / n;
    return grid.period > 0;
}

// Fits the grid over a span of beats around its anchor that doubles until it holds the song.
// A span without enough onsets (an intro of silence) leaves the grid as it was.
std::optional<Grid> fitGrid(const std::vector<Peak>& peaks, Grid grid, std::size_t length) {
    const double songEnd = static_cast<double>(length);
    bool fittedOnce = false;
    for (long span = 8;; span *= 2) {
        const long from = std::max(-span, static_cast<long>(std::floor(-grid.anchor / grid.period)) - 1);
        const long to = std::min(span, static_cast<long>(std::ceil((songEnd - grid.anchor) / grid.period)) + 1);
        const std::vector<Match> matches = matchesOf(peaks, grid, from, to);
        Grid fitted = grid;
        if (fitLine(matches, fitted, 0.2 * grid.period)) {
            // Once more without the stray onsets (off-beat hits caught by the wide window).
            double squares = 0;
            for (const Match& match : matches) {
                const double residual =
                    match.position - (fitted.anchor + static_cast<double>(match.beat) * fitted.period);
                squares += residual * residual;
            }
            const double rms = std::sqrt(squares / static_cast<double>(matches.size()));
            Grid refined = fitted;
            if (fitLine(matches, refined, std::max(1.0, 2.5 * rms)))
                fitted = refined;
            grid = fitted;
            fittedOnce = true;
        }
        if (from > -span && to < span)
            break;
    }
    if (!fittedOnce)
        return std::nullopt;
    // The first beat: the earliest grid position with a clear onset on it.
    const long from = static_cast<long>(std::floor(-grid.anchor / grid.period)) - 1;
    const long to = static_cast<long>(std::ceil((songEnd - grid.anchor) / grid.period)) + 1;
    const std::vector<Match> matches = matchesOf(peaks, grid, from, to);
    if (matches.empty())
        return std::nullopt;
    std::vector<double> values;
    for (const Match& match : matches)
        values.push_back(match.value);
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    const double clear = 0.3 * *middle;
    grid.firstBeat = to;
    for (const Match& match : matches) {
        const double predicted = grid.anchor + static_cast<double>(match.beat) * grid.period;
        if (match.value >= clear && std::abs(match.position - predicted) <= 0.1 * grid.period) {
            grid.firstBeat = match.beat;
            break;
        }
    }
    // A grid position well before the song's start is no beat of it.
    while (grid.anchor + static_cast<double>(grid.firstBeat) * grid.period < -0.2 * grid.period)
        ++grid.firstBeat;
    return grid;
}

double median(std::vector<double> values) {
    values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return !(v > 0); }), values.end());
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace

struct TempoDetector::State {
    explicit State(double rate)
        : sampleRate(rate),
          detectionFunction(DFConfig{kStep, kFrame, DF_COMPLEXSD, 3, false, -1, -1}),
          pending(kLeadInSamples, 0.0) {}

    double sampleRate;
    DetectionFunction detectionFunction;
    std::vector<double> pending;
    std::vector<double> df;

    [[nodiscard]] double bpmOf(double period) const { return 60.0 * sampleRate / (kStep * period); }
    [[nodiscard]] double periodOf(double bpm) const { return 60.0 * sampleRate / (kStep * bpm); }

    // The beat period (in hops) that the Queen Mary tracker finds, by its median over the song.
    [[nodiscard]] double trackerPeriod() const {
        std::vector<double> input(df.begin() + std::min<std::ptrdiff_t>(2, static_cast<std::ptrdiff_t>(df.size())),
                                  df.end());
        const std::size_t original = input.size();
        while (input.size() < kTrackerWindow)
            input.push_back(input[input.size() - original]);
        TempoTrackV2 tracker(static_cast<float>(sampleRate), kStep);
        // The tracker writes into a period vector of the input's length; it does not size it.
        std::vector<double> periods(input.size(), 0.0);
        std::vector<double> tempi;
        tracker.calculateBeatPeriod(input, periods, tempi);
        return median(periods);
    }

    [[nodiscard]] Level chooseLevel(const std::vector<double>& strength, double guess) const {
        const std::size_t excerpt = std::min(kLevelExcerpt, strength.size());
        const std::size_t begin = (strength.size() - excerpt) / 2;
        const std::size_t end = begin + excerpt;
        const auto level = [&](double period) {
            const double bpm = bpmOf(period);
            return bpm >= kSlowestBpm && bpm <= kFastestBpm ? levelStrength(strength, period, begin, end) : Level{};
        };
        Level chosen = level(guess);
        // Faster while the beats added between carry at least 30 % of the strength.
        for (int step = 0; step < 2; ++step) {
            const Level faster = level(chosen.period / 2);
            const double needed = bpmOf(faster.period) > kPreferredFastestBpm ? 0.85 : 0.65;
            if (faster.strength <= 0 || faster.strength < needed * chosen.strength)
                break;
            chosen = faster;
        }
        // Slower while the beats between carry less than the faster level needs, so that the
        // same onsets give the same level whichever of the two the tracker guessed.
        for (int step = 0; step < 2; ++step) {
            const Level slower = level(chosen.period * 2);
            if (slower.strength <= 0)
                break;
            const double needed = bpmOf(slower.period) < kPreferredSlowestBpm ? 0.55 : 0.65;
            if (chosen.strength >= needed * slower.strength)
                break;
            chosen = slower;
        }
        return chosen;
    }
};

TempoDetector::TempoDetector(double sampleRate)
    : m_state(std::make_unique<State>(sampleRate)) {}

TempoDetector::~TempoDetector() = default;

void TempoDetector::add(const float* samples, std::size_t count) {
    State& state = *m_state;
    state.pending.insert(state.pending.end(), samples, samples + count);
    std::size_t offset = 0;
    while (state.pending.size() - offset >= kFrame) {
        state.df.push_back(state.detectionFunction.processTimeDomain(state.pending.data() + offset));
        offset += kStep;
    }
    state.pending.erase(state.pending.begin(), state.pending.begin() + static_cast<std::ptrdiff_t>(offset));
}

std::optional<TempoDetector::Estimate> TempoDetector::finish() {
    State& state = *m_state;
    if (static_cast<double>(state.df.size()) < 4.5 * state.sampleRate / kStep + 3)
        return std::nullopt;
    const std::vector<double> strength = onsetStrength(state.df);
    if (*std::max_element(strength.begin(), strength.end()) <= 0)
        return std::nullopt;
    const double guess = state.trackerPeriod();
    if (!(guess > 0))
        return std::nullopt;
    const Level level = state.chooseLevel(smoothed(strength), guess);
    if (level.strength <= 0)
        return std::nullopt;
    // The grid is anchored in the middle of the song, where the level was chosen.
    const double middle = static_cast<double>(strength.size()) / 2;
    const double anchor = level.phase + std::round((middle - level.phase) / level.period) * level.period;
    const std::optional<Grid> grid = fitGrid(peaksOf(strength), Grid{anchor, level.period, 0}, strength.size());
    if (!grid)
        return std::nullopt;
    const double hopSeconds = kStep / state.sampleRate;
    Estimate estimate;
    estimate.beatsPerMinute = std::round(state.bpmOf(grid->period) * 100) / 100;
    const double firstBeat = grid->anchor + static_cast<double>(grid->firstBeat) * grid->period;
    estimate.firstBeatSeconds =
        std::max(0.0, firstBeat * hopSeconds + (kOnsetLatencySamples - kLeadInSamples) / state.sampleRate);
    return estimate;
}

} // namespace vexo::analysis
