#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DemoCatalogue.h"
#include "SongSynthesizer.h"
#include "platform/analysis/TrackAnalyzer.h"
#include "platform/media/CamelotKey.h"

namespace vexo::library {
namespace {

// The demonstration songs are there to be mixed by their tempo and key: the analysis must hear
// the ones they are tagged with. A few songs in each mode, pad and arpeggio timbres, the
// slowest one, and a low minor key whose bass could sound major.
TEST(DemoSongAnalysisTest, SongsAnalyseToTheTempoAndKeyTheyAreMadeIn) {
    const std::vector<DemoSong> songs = DemoCatalogue::songs();
    for (const std::string title :
         {"Morning Circuit", "Straße 54", "Moonwalk 🌕", "Zürich Tram", "Interlude", "Hanami 花見"}) {
        const auto song = std::find_if(songs.begin(), songs.end(), [&](const DemoSong& s) { return s.title == title; });
        ASSERT_NE(song, songs.end()) << title;
        SongSynthesizer::Sound sound;
        sound.beatsPerMinute = song->beatsPerMinute;
        sound.keyRoot = song->keyRoot;
        sound.minor = song->minor;
        sound.seconds = song->seconds;
        sound.seed = song->seed;
        const std::vector<std::int16_t> mono = SongSynthesizer::render(sound);
        std::vector<float> stereo(mono.size() * 2);
        for (std::size_t i = 0; i < mono.size(); ++i)
            stereo[2 * i] = stereo[2 * i + 1] = static_cast<float>(mono[i]) / 32768.0f;
        const analysis::TrackAnalysis result =
            analysis::TrackAnalyzer::analyzeFrames(stereo.data(), mono.size(), SongSynthesizer::kSampleRate);
        EXPECT_NEAR(result.beatsPerMinute.value_or(0), song->beatsPerMinute, 0.5) << title;
        EXPECT_EQ(result.key.value_or("none"), media::camelotKey(song->keyRoot, song->minor)) << title;
    }
}

} // namespace
} // namespace vexo::library
