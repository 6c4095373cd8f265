// Track analysis, two measures.
//
// Throughput (default): generated songs (drums and chords at several tempos, 44.1 kHz
// stereo, FLAC and WAVE) analysed one after the other on one thread, against a bare decode of
// the same files by the same decoder in the same run. Thread CPU time, best of three runs; the
// figures are seconds of audio per second of one core, and the analysis's time as a ratio of
// the bare decode's. Goal: at least 50x real time (a 5-minute song in 6 s).
//
// Accuracy (--accuracy): a generated corpus with known answers, analysed at 44.1 kHz: drum
// patterns and clicks at every whole tempo from 70 to 180 BPM and at 87, 123.5 and 174,
// straight and swung, some with a late first beat; chords and melodies in the 24 keys; sines
// at known levels. Prints the share of tempos within 0.5 BPM, the half or double tempos, the
// share of first beats within 20 ms, the share of keys right, and the largest loudness error
// against the closed form of a sine's loudness.
//
//   bench_analysis [--seconds S] [--songs N]    (each song S seconds, default 120; N songs, default 6)
//   bench_analysis --accuracy [--seconds S] [--only tempo|key]   (corpus songs S seconds, default 30)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/analysis/AnalysisCorpus.h"
#include "platform/analysis/TrackAnalyzer.h"
#include "platform/audio/AudioFileWriter.h"
#include "platform/audio/Decoder.h"
#include "platform/media/CamelotKey.h"
#include "support/TemporaryDirectory.h"

namespace {

using namespace vexo;
using analysis::testing::BeatRecipe;
using analysis::testing::KeyRecipe;
using analysis::testing::Rhythm;

constexpr int kRate = 44100;

double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double bestOfThree(const auto& work) {
    double best = 1e9;
    for (int run = 0; run < 3; ++run) {
        const double start = threadSeconds();
        work();
        best = std::min(best, threadSeconds() - start);
    }
    return best;
}

double bareDecode(const std::filesystem::path& path) {
    const auto decoder = audio::Decoder::open(path, audio::Decoder::kSourceSampleRate).valueOr(nullptr);
    if (!decoder)
        return 0;
    std::vector<float> block(4096 * 2);
    std::size_t frames = 0;
    while (const std::size_t read = decoder->read(block.data(), 4096))
        frames += read;
    return static_cast<double>(frames) / decoder->sampleRate();
}

int throughput(double seconds, int songs) {
    testing::TemporaryDirectory folder;
    std::vector<std::filesystem::path> files;
    const double tempos[] = {92, 124, 174, 110, 140, 87.5};
    for (int i = 0; i < songs; ++i) {
        BeatRecipe recipe;
        recipe.beatsPerMinute = tempos[i % 6];
        recipe.rhythm = static_cast<Rhythm>(1 + i % 3);
        recipe.withChords = true;
        recipe.seconds = seconds;
        recipe.sampleRate = kRate;
        const std::vector<float> frames = analysis::testing::beatSong(recipe);
        const auto path = folder.path() / ("song" + std::to_string(i) + (i % 2 == 0 ? ".flac" : ".wav"));
        const auto writer = audio::AudioFileWriter::create(path, kRate).valueOr(nullptr);
        if (!writer || !writer->write(frames.data(), frames.size() / 2) || !writer->finish()) {
            std::fprintf(stderr, "bench_analysis: cannot write %s\n", path.c_str());
            return 1;
        }
        files.push_back(path);
    }
    double audioSeconds = 0;
    const double decode = bestOfThree([&] {
        audioSeconds = 0;
        for (const auto& file : files)
            audioSeconds += bareDecode(file);
    });
    std::size_t complete = 0;
    const double analyse = bestOfThree([&] {
        complete = 0;
        for (const auto& file : files)
            complete += analysis::TrackAnalyzer::analyzeFile(file).failure ? 0 : 1;
    });
    std::printf("%d songs, %.0f s of audio (44.1 kHz stereo, FLAC and WAVE), %zu analysed whole\n", songs, audioSeconds,
                complete);
    std::printf("bare decode:  %7.3f s of one core, %6.0fx real time\n", decode, audioSeconds / decode);
    std::printf("analysis:     %7.3f s of one core, %6.0fx real time (goal: at least 50x)\n", analyse,
                audioSeconds / analyse);
    std::printf("ratio:        analysis takes %.2fx the bare decode's time\n", analyse / decode);
    std::printf("a 5-minute song: %.2f s on one core\n", 300 / (audioSeconds / analyse));
    return 0;
}

analysis::TrackAnalysis analyseFrames(const std::vector<float>& frames) {
    return analysis::TrackAnalyzer::analyzeFrames(frames.data(), frames.size() / 2, kRate);
}

int accuracy(double seconds, const std::string& only) {
    std::vector<double> tempos;
    for (int bpm = 70; bpm <= 180; ++bpm)
        tempos.push_back(bpm);
    tempos.insert(tempos.end(), {87, 123.5, 174});
    int songs = 0, withinHalf = 0, octave = 0, firstBeats = 0, firstBeatsRight = 0;
    for (std::size_t i = 0; i < tempos.size() && only != "key"; ++i) {
        BeatRecipe recipe;
        recipe.beatsPerMinute = tempos[i];
        recipe.rhythm = static_cast<Rhythm>(i % 4);
        recipe.swing = i % 3 == 1 ? 2.0 / 3 : 0.5;
        recipe.firstBeatSeconds = i % 5 == 2 ? 0.3 + 0.37 * static_cast<double>(i % 7) : 0;
        recipe.withChords = i % 2 == 0;
        recipe.seconds = seconds;
        recipe.sampleRate = kRate;
        const auto result = analyseFrames(analysis::testing::beatSong(recipe));
        ++songs;
        const double found = result.beatsPerMinute.value_or(0);
        const bool right = std::abs(found - recipe.beatsPerMinute) <= 0.5;
        withinHalf += right ? 1 : 0;
        const bool octaveError =
            std::abs(found - 2 * recipe.beatsPerMinute) <= 1 || std::abs(found - recipe.beatsPerMinute / 2) <= 1;
        octave += octaveError ? 1 : 0;
        if (right) {
            ++firstBeats;
            firstBeatsRight +=
                std::abs(result.firstBeatSeconds.value_or(-1) - recipe.firstBeatSeconds) <= 0.020 ? 1 : 0;
        }
        if (!right)
            std::printf("  tempo miss: %s at %.1f BPM, swing %.2f, first beat %.2f s: found %.2f\n",
                        analysis::testing::rhythmName(recipe.rhythm).c_str(), recipe.beatsPerMinute, recipe.swing,
                        recipe.firstBeatSeconds, found);
    }
    int keys = 0, keysRight = 0;
    for (const bool melody : {false, true}) {
        for (int index = 0; index < 24 && only != "tempo"; ++index) {
            KeyRecipe recipe;
            recipe.pitchClass = index % 12;
            recipe.minor = index >= 12;
            recipe.melody = melody;
            recipe.seconds = std::min(seconds, 20.0);
            recipe.sampleRate = kRate;
            const auto result = analyseFrames(analysis::testing::keySong(recipe));
            const std::string expected = media::camelotKey(recipe.pitchClass, recipe.minor);
            ++keys;
            keysRight += result.key == expected ? 1 : 0;
            if (result.key != expected)
                std::printf("  key miss: %s in %s: found %s\n", melody ? "melody" : "chords", expected.c_str(),
                            result.key.value_or("none").c_str());
        }
    }
    double worstLoudness = 0;
    for (const double peak : {1.0, 0.5, 0.25, 0.1, 0.03, 0.01}) {
        const auto result = analyseFrames(analysis::testing::toneSong(997, peak, 10, kRate));
        worstLoudness = std::max(worstLoudness, std::abs(result.loudnessLUFS.value_or(-99) - 20 * std::log10(peak)));
    }
    if (only != "key")
        std::printf("tempo: %d of %d songs within 0.5 BPM (%.1f %%; goal 95 %%), %d half or double (goal 0)\n",
                    withinHalf, songs, 100.0 * withinHalf / songs, octave);
    if (only != "key")
        std::printf("first beat: %d of %d within 20 ms (%.1f %%)\n", firstBeatsRight, firstBeats,
                    100.0 * firstBeatsRight / std::max(1, firstBeats));
    if (only != "tempo")
        std::printf("key: %d of %d right (%.1f %%; goal 90 %%): 24 keys as chords and as melodies\n", keysRight, keys,
                    100.0 * keysRight / keys);
    std::printf("loudness: largest error %.3f LU against a sine's closed form (goal 0.5)\n", worstLoudness);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    // Lines as they come, also into a file: the accuracy run takes minutes.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    bool measureAccuracy = false;
    std::string only;
    double seconds = 0;
    int songs = 6;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--accuracy")
            measureAccuracy = true;
        else if (argument == "--seconds" && i + 1 < argc)
            seconds = std::max(6.0, std::atof(argv[++i]));
        else if (argument == "--only" && i + 1 < argc)
            only = argv[++i];
        else if (argument == "--songs" && i + 1 < argc)
            songs = std::max(1, std::atoi(argv[++i]));
        else {
            std::fprintf(stderr, "usage: bench_analysis [--accuracy [--only tempo|key]] [--seconds S] [--songs N]\n");
            return argument == "--help" ? 0 : 2;
        }
    }
    if (measureAccuracy)
        return accuracy(seconds > 0 ? seconds : 30, only);
    return throughput(seconds > 0 ? seconds : 120, songs);
}
